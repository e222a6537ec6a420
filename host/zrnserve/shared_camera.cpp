#include "zrnserve/shared_camera.h"

#include "zrnserve/note.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <gst/video/video.h>
#include <utility>

namespace zrnserve
{
namespace
{

using namespace std::chrono_literals;

/// Before a camera whose stream has failed is opened anew.
constexpr std::chrono::seconds revivalPause(2);

/// A problem that stays is told again after so long.
constexpr std::chrono::minutes repeatedNotes(1);

/// From 1900, where NTP counts from, to 1970.
constexpr GstClockTime ntpEpoch = 2'208'988'800 * GST_SECOND;

void addStatistics(CameraCounts& counts, GstElement* source)
{
    g_autoptr(GstStructure) statistics = nullptr;
    g_object_get(source, "statistics", &statistics, nullptr);
    const auto add = [&statistics](const char* name, std::uint64_t& sum) {
        guint64 count = 0;
        gst_structure_get_uint64(statistics, name, &count);
        sum += count;
    };
    add("frames", counts.frames);
    add("lost-camera", counts.lostCamera);
    add("lost-library", counts.lostLibrary);
    add("lost-ring", counts.lostRing);
    add("lost-queue", counts.lostQueue);
    add("unusable", counts.damaged);
}

/// When the first bytes of an image were here, by the wall clock since 1970.
GstClockTime captureTime(GstBuffer* buffer)
{
    static GstStaticCaps unixTime = GST_STATIC_CAPS("timestamp/x-unix");
    g_autoptr(GstCaps) caps = gst_static_caps_get(&unixTime);
    const GstReferenceTimestampMeta* meta = gst_buffer_get_reference_timestamp_meta(buffer, caps);
    return meta ? meta->timestamp : GST_CLOCK_TIME_NONE;
}

/// The form in which RTP carries it.
void addCaptureTime(GstBuffer* buffer, GstClockTime time)
{
    static GstStaticCaps ntpTime = GST_STATIC_CAPS("timestamp/x-ntp");
    g_autoptr(GstCaps) caps = gst_static_caps_get(&ntpTime);
    gst_buffer_add_reference_timestamp_meta(buffer, caps, time + ntpEpoch, GST_CLOCK_TIME_NONE);
}

void copyRows(GstVideoFrame& target, int left, const GstVideoFrame& image)
{
    const int width = GST_VIDEO_FRAME_WIDTH(&image);
    for (int row = 0; row < GST_VIDEO_FRAME_HEIGHT(&image); ++row) {
        std::memcpy(static_cast<guint8*>(GST_VIDEO_FRAME_PLANE_DATA(&target, 0)) +
                        row * GST_VIDEO_FRAME_PLANE_STRIDE(&target, 0) + left,
                    static_cast<const guint8*>(GST_VIDEO_FRAME_PLANE_DATA(&image, 0)) +
                        row * GST_VIDEO_FRAME_PLANE_STRIDE(&image, 0),
                    static_cast<std::size_t>(width));
    }
}

/// Where an image stands in a grey picture of two.
void copyImage(GstSample* sample, GstVideoFrame& target, bool isRight)
{
    GstVideoInfo info;
    GstVideoFrame image;
    if (gst_video_info_from_caps(&info, gst_sample_get_caps(sample)) &&
        info.width * 2 == GST_VIDEO_FRAME_WIDTH(&target) &&
        info.height == GST_VIDEO_FRAME_HEIGHT(&target) &&
        gst_video_frame_map(&image, &info, gst_sample_get_buffer(sample), GST_MAP_READ)) {
        copyRows(target, isRight ? info.width : 0, image);
        gst_video_frame_unmap(&image);
    }
}

} // namespace

const char* nameOf(View view)
{
    return view == View::A ? "a" : view == View::B ? "b" : "ab";
}

SharedCamera::SharedCamera(std::string serial, CameraPatience patience)
    : m_serial(std::move(serial))
    , m_patience(patience)
    , m_clock(gst_system_clock_obtain())
    , m_latency({{0.5, 0.02}, {0.95, 0.01}, {0.99, 0.002}})
{
}

SharedCamera::~SharedCamera()
{
    close();
    gst_object_unref(m_clock);
}

std::unique_ptr<SharedCamera::Viewing> SharedCamera::look(View view, GstAppSrc* images)
{
    if (!enter(view, images)) {
        return nullptr;
    }
    // Others may come, leave and end meanwhile.
    std::unique_lock lock(m_mutex);
    // Image A of a frame comes before its B, and a camera of one sensor sends B alone.
    m_changed.wait_until(lock, Clock::time_point(m_firstFrameDue),
                         [this] { return m_isEnding || m_isBroken || m_images[1] > 0; });
    const bool isThere = !m_isEnding && !m_isBroken && m_images[1] > 0;
    if (isThere && (view == View::B || m_images[0] > 0)) {
        return std::make_unique<Viewing>(shared_from_this(), images);
    }
    const Clock::time_point now = Clock::now();
    if (isThere) {
        note("%s: a camera of one sensor has no image A", m_serial.c_str());
    } else if (!m_isEnding && !m_isBroken && m_silentUntil <= now) {
        note("%s: the camera sends no frames", m_serial.c_str());
        m_silentUntil = now + m_patience.afterSilence;
    }
    lock.unlock();
    leave(images);
    return nullptr;
}

/// Opens the camera for a viewer, who counts as one from now on.
bool SharedCamera::enter(View view, GstAppSrc* images)
{
    const std::lock_guard lifecycle(m_lifecycle);
    std::unique_lock lock(m_mutex);
    if (m_isEnding || (m_images[1] == 0 && Clock::now() < m_silentUntil)) {
        return false;
    }
    if (m_isBroken) {
        lock.unlock();
        closePipeline();
        lock.lock();
    }
    if (!m_pipeline) {
        lock.unlock();
        const bool isOpen = open();
        lock.lock();
        if (!isOpen) {
            return false;
        }
    }
    m_viewers.push_back({view, GST_APP_SRC(gst_object_ref(images))});
    if (!m_reviver.joinable()) {
        m_reviver = std::thread([this] { revive(); });
    }
    return true;
}

/// Whether somebody looks at a camera that has failed. Called with m_mutex held.
bool SharedCamera::needsRevival() const
{
    return !m_isEnding && !m_viewers.empty() && (m_isBroken || !m_source);
}

/// Opens a camera that has failed anew, over and over: who looks goes on when it is back.
void SharedCamera::revive()
{
    std::unique_lock lock(m_mutex);
    while (!m_isEnding) {
        m_changed.wait(lock, [this] { return m_isEnding || needsRevival(); });
        m_changed.wait_for(lock, revivalPause, [this] { return m_isEnding; });
        lock.unlock();
        std::unique_lock lifecycle(m_lifecycle);
        lock.lock();
        if (needsRevival()) {
            lock.unlock();
            closePipeline();
            open();
            lock.lock();
        }
        lifecycle.unlock();
    }
}

void SharedCamera::leave(GstAppSrc* images)
{
    const std::lock_guard lifecycle(m_lifecycle);
    std::unique_lock lock(m_mutex);
    const auto viewer = std::find_if(m_viewers.begin(), m_viewers.end(),
                                     [images](const Viewer& v) { return v.images == images; });
    if (viewer == m_viewers.end()) {
        return;
    }
    m_viewers.erase(viewer);
    const bool isLast = m_viewers.empty();
    lock.unlock();
    gst_object_unref(images);
    if (isLast) {
        closePipeline();
    }
}

bool SharedCamera::hasOneSensor() const
{
    const std::lock_guard lock(m_mutex);
    return !m_isBroken && m_images[0] == 0 && m_images[1] > 0;
}

void SharedCamera::end()
{
    const std::lock_guard lock(m_mutex);
    m_isEnding = true;
    m_changed.notify_all();
}

void SharedCamera::close()
{
    end();
    std::unique_lock opening(m_lifecycle);
    std::thread reviver = std::move(m_reviver);
    opening.unlock();
    if (reviver.joinable()) {
        reviver.join();
    }
    const std::lock_guard lifecycle(m_lifecycle);
    closePipeline();
    std::unique_lock lock(m_mutex);
    const std::vector<Viewer> viewers = std::move(m_viewers);
    m_viewers.clear();
    lock.unlock();
    for (const Viewer& viewer : viewers) {
        gst_object_unref(viewer.images);
    }
}

bool SharedCamera::open()
{
    // A sink that neither waits for a clock nor for the other one: no queue is needed before it.
    g_autoptr(GError) error = nullptr;
    GstElement* pipeline = gst_parse_launch(
        "zrnsrc name=camera "
        "camera.src_a ! appsink name=a async=false sync=false max-buffers=1 drop=true "
        "camera.src_b ! appsink name=b async=false sync=false max-buffers=1 drop=true",
        &error);
    if (!pipeline) {
        note("%s: %s", m_serial.c_str(), error->message);
        return false;
    }
    m_pipeline = GST_ELEMENT(gst_object_ref_sink(pipeline));
    gst_pipeline_use_clock(GST_PIPELINE(m_pipeline), m_clock);
    g_autoptr(GstBus) bus = gst_element_get_bus(m_pipeline);
    gst_bus_set_sync_handler(bus, onMessage, this, nullptr);
    const auto listen = [this](const char* name, auto function) {
        g_autoptr(GstElement) sink = gst_bin_get_by_name(GST_BIN(m_pipeline), name);
        GstAppSinkCallbacks callbacks{};
        callbacks.new_sample = function;
        gst_app_sink_set_callbacks(GST_APP_SINK(sink), &callbacks, this, nullptr);
    };
    listen("a", onSample<0>);
    listen("b", onSample<1>);
    {
        const std::lock_guard lock(m_mutex);
        m_source = gst_bin_get_by_name(GST_BIN(m_pipeline), "camera");
        g_object_set(m_source, "serial", m_serial.c_str(), nullptr);
        m_images = {};
        m_isBroken = false;
    }
    if (gst_element_set_state(m_pipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        closePipeline();
        return false;
    }
    m_isOpen = true;
    note("%s: opened", m_serial.c_str());
    const std::lock_guard lock(m_mutex);
    ++m_before.opened;
    m_firstFrameDue = Clock::now() + m_patience.firstFrame;
    return true;
}

/// Called with m_lifecycle held.
void SharedCamera::closePipeline()
{
    if (!m_pipeline) {
        return;
    }
    gst_element_set_state(m_pipeline, GST_STATE_NULL);
    g_autoptr(GstBus) bus = gst_element_get_bus(m_pipeline);
    gst_bus_set_sync_handler(bus, nullptr, nullptr, nullptr);
    {
        const std::lock_guard lock(m_mutex);
        addStatistics(m_before, m_source);
        g_clear_pointer(&m_source, gst_object_unref);
        g_clear_pointer(&m_newestA, gst_sample_unref);
        m_isBroken = false;
    }
    g_clear_pointer(&m_pipeline, gst_object_unref);
    if (std::exchange(m_isOpen, false)) {
        note("%s: closed", m_serial.c_str());
    }
}

CameraCounts SharedCamera::counts() const
{
    const std::lock_guard lock(m_mutex);
    CameraCounts counts = m_before;
    counts.isOpen = m_source != nullptr;
    if (m_source) {
        addStatistics(counts, m_source);
    }
    return counts;
}

template <int image>
GstFlowReturn SharedCamera::onSample(GstAppSink* sink, gpointer self)
{
    if (GstSample* sample = gst_app_sink_pull_sample(sink)) {
        static_cast<SharedCamera*>(self)->take(image, sample);
        gst_sample_unref(sample);
    }
    return GST_FLOW_OK;
}

void SharedCamera::take(int image, GstSample* sample)
{
    GstBuffer* buffer = gst_sample_get_buffer(sample);
    const std::lock_guard lock(m_mutex);
    if (!m_source) {
        return;
    }
    // Both pipelines run by one clock, whose time stays when base times differ.
    const GstClockTime running = gst_segment_to_running_time(
        gst_sample_get_segment(sample), GST_FORMAT_TIME, GST_BUFFER_PTS(buffer));
    const GstClockTime when = GST_CLOCK_TIME_IS_VALID(running)
                                  ? running + gst_element_get_base_time(m_source)
                                  : GST_CLOCK_TIME_NONE;
    const GstClockTime captured = captureTime(buffer);
    show(image == 0 ? View::A : View::B, buffer, gst_sample_get_caps(sample), when, captured);
    if (image == 0) {
        g_clear_pointer(&m_newestA, gst_sample_unref);
        m_newestA = gst_sample_ref(sample);
    } else {
        showBoth(sample, when, captured);
        m_before.captured = GST_CLOCK_TIME_IS_VALID(captured) ? captured : 0;
        const GstClockTime now = gst_clock_get_time(m_clock);
        if (GST_CLOCK_TIME_IS_VALID(when) && when <= now) {
            m_latency.Observe(static_cast<double>(now - when) / GST_SECOND);
        }
    }
    m_problem.clear();
    ++m_images[static_cast<std::size_t>(image)];
    m_changed.notify_all();
}

bool SharedCamera::isShown(View view) const
{
    return std::any_of(m_viewers.begin(), m_viewers.end(),
                       [view](const Viewer& viewer) { return viewer.view == view; });
}

void SharedCamera::showBoth(GstSample* sampleB, GstClockTime when, GstClockTime captured)
{
    GstBuffer* b = gst_sample_get_buffer(sampleB);
    if (!m_newestA || !isShown(View::Both) ||
        GST_BUFFER_PTS(gst_sample_get_buffer(m_newestA)) != GST_BUFFER_PTS(b)) {
        return;
    }
    GstVideoInfo info;
    if (!gst_video_info_from_caps(&info, gst_sample_get_caps(sampleB))) {
        return;
    }
    GstVideoInfo wide;
    gst_video_info_set_format(&wide, GST_VIDEO_FORMAT_GRAY8, static_cast<guint>(info.width) * 2,
                              static_cast<guint>(info.height));
    wide.fps_n = info.fps_n;
    wide.fps_d = info.fps_d;
    g_autoptr(GstBuffer) buffer = gst_buffer_new_allocate(nullptr, wide.size, nullptr);
    GstVideoFrame target;
    if (!buffer || !gst_video_frame_map(&target, &wide, buffer, GST_MAP_WRITE)) {
        return;
    }
    copyImage(m_newestA, target, false);
    copyImage(sampleB, target, true);
    gst_video_frame_unmap(&target);
    gst_buffer_copy_into(
        buffer, b,
        static_cast<GstBufferCopyFlags>(GST_BUFFER_COPY_FLAGS | GST_BUFFER_COPY_TIMESTAMPS), 0,
        gst_buffer_get_size(b));
    g_autoptr(GstCaps) caps = gst_video_info_to_caps(&wide);
    show(View::Both, buffer, caps, when, captured);
}

void SharedCamera::show(View view, GstBuffer* buffer, GstCaps* caps, GstClockTime when,
                        GstClockTime captured)
{
    for (const Viewer& viewer : m_viewers) {
        if (viewer.view != view || GST_STATE(viewer.images) != GST_STATE_PLAYING) {
            continue;
        }
        const GstClockTime base = gst_element_get_base_time(GST_ELEMENT(viewer.images));
        if (!GST_CLOCK_TIME_IS_VALID(when) || when < base) {
            continue; // without a time, or older than that pipeline
        }
        m_before.skipped += gst_app_src_get_current_level_buffers(viewer.images) >=
                            gst_app_src_get_max_buffers(viewer.images);
        g_autoptr(GstBuffer) image = gst_buffer_copy(buffer);
        GST_BUFFER_PTS(image) = when - base;
        if (GST_CLOCK_TIME_IS_VALID(captured)) {
            addCaptureTime(image, captured);
        }
        g_autoptr(GstSample) sample = gst_sample_new(image, caps, nullptr, nullptr);
        gst_app_src_push_sample(viewer.images, sample);
    }
}

GstBusSyncReply SharedCamera::onMessage(GstBus* /*bus*/, GstMessage* message, gpointer self)
{
    static_cast<SharedCamera*>(self)->noteMessage(message);
    gst_message_unref(message);
    return GST_BUS_DROP;
}

void SharedCamera::noteMessage(GstMessage* message)
{
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
        g_autoptr(GError) error = nullptr;
        gst_message_parse_error(message, &error, nullptr);
        const std::lock_guard lock(m_mutex);
        const Clock::time_point now = Clock::now();
        if (m_problem != error->message || now - m_problemNoted > repeatedNotes) {
            note("%s: %s", m_serial.c_str(), error->message);
            m_problem = error->message;
            m_problemNoted = now;
        }
        m_isBroken = true;
        m_changed.notify_all();
        return;
    }
    const GstStructure* event = gst_message_get_structure(message);
    if (GST_MESSAGE_TYPE(message) != GST_MESSAGE_ELEMENT ||
        !gst_structure_has_name(event, "zrn-camera")) {
        return;
    }
    const std::string kind = gst_structure_get_string(event, "event");
    if (kind == "lost") {
        const std::string cause = gst_structure_get_string(event, "cause");
        note("%s: lost, %s", m_serial.c_str(), cause.c_str());
        const std::lock_guard lock(m_mutex);
        ++m_before.outages;
        ++(cause == "gone" ? m_before.gone : m_before.silent);
    } else if (kind == "refused") {
        note("%s: %s", m_serial.c_str(), gst_structure_get_string(event, "reason"));
        const std::lock_guard lock(m_mutex);
        ++m_before.refused;
    } else {
        double seconds = 0;
        gst_structure_get_double(event, "seconds", &seconds);
        note("%s: %s after %.1f s", m_serial.c_str(), kind.c_str(), seconds);
    }
}

} // namespace zrnserve
