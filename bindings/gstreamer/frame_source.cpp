#include "frame_source.h"

#include "client/property_keys.h"
#include "frame_buffer.h"
#include "messages.h"

#include <algorithm>
#include <gst/video/video.h>

namespace zrngst
{
namespace
{

using namespace std::chrono_literals;

/// How long the task waits for a frame before it looks what else there is to do.
constexpr auto look = 20ms;
/// Between two notices that nothing comes.
constexpr GstClockTime bridgeLength = 100 * GST_MSECOND;

GstClockTime toGst(std::chrono::nanoseconds time)
{
    return static_cast<GstClockTime>(time.count());
}

} // namespace

FrameSource::FrameSource(GstElement* element, GstPad* padA, GstPad* padB)
    : m_element(element)
    , m_task(gst_task_new([](gpointer self) { static_cast<FrameSource*>(self)->step(); }, this,
                          nullptr))
    , m_combiner(gst_flow_combiner_new())
    , m_sides{Side{padA, 'A'}, Side{padB, 'B'}}
{
    g_rec_mutex_init(&m_taskMutex);
    gst_task_set_lock(m_task, &m_taskMutex);
    for (const Side& side : m_sides) {
        gst_flow_combiner_add_pad(m_combiner, side.pad);
    }
}

FrameSource::~FrameSource()
{
    gst_flow_combiner_free(m_combiner);
    gst_object_unref(m_task);
    g_rec_mutex_clear(&m_taskMutex);
}

void FrameSource::open()
{
    const SourceSettings wanted = settings();
    const auto camera = zrn::Camera::open({.serial = wanted.serial, .port = wanted.port});
    writeAll(*camera, wanted.controls);
    const std::lock_guard lock(m_settingsMutex);
    m_camera = camera;
    m_period = camera->facts().nominalPeriod;
}

void FrameSource::prepare()
{
    for (Side& side : m_sides) {
        side.needsStart = true;
        side.needsSegment = true;
    }
    gst_flow_combiner_reset(m_combiner);
    m_groupId = gst_util_group_id_next();
    m_pushed = 0;
    m_isEnding = false;
    m_mayRest = true;
}

void FrameSource::play()
{
    const SourceSettings wanted = settings();
    for (Side& side : m_sides) {
        if (side.needsStart) {
            announce(side); // mixers choose their size while the camera still starts
        }
    }
    {
        const std::lock_guard lock(m_streamMutex);
        m_begin = std::chrono::steady_clock::now();
        m_stream =
            std::make_unique<zrn::Stream>(camera(), zrn::StreamOptions{.policy = wanted.queuePolicy,
                                                                       .capacity = wanted.queueSize,
                                                                       .keepAlive = true});
    }
    m_isBeginning = true;
    m_isPlaying = true;
    gst_task_start(m_task);
}

void FrameSource::pause()
{
    m_isPlaying = false;
    gst_task_pause(m_task);
    const std::lock_guard lock(m_streamMutex);
    m_stream.reset();
}

void FrameSource::unprepare()
{
    {
        const std::lock_guard lock(m_restMutex);
        m_mayRest = false;
        gst_task_stop(m_task);
    }
    gst_task_join(m_task);
    const std::lock_guard lock(m_settingsMutex);
    m_newest.reset();
}

void FrameSource::close()
{
    std::shared_ptr<zrn::Camera> camera;
    const std::lock_guard lock(m_settingsMutex);
    camera.swap(m_camera);
}

void FrameSource::requestEnd()
{
    m_isEnding = true;
}

void FrameSource::beginFlush()
{
    for (const Side& side : m_sides) {
        gst_pad_push_event(side.pad, gst_event_new_flush_start());
    }
    gst_task_pause(m_task);
}

void FrameSource::endFlush(gboolean resetTime)
{
    g_rec_mutex_lock(&m_taskMutex); // until the task stands still
    for (Side& side : m_sides) {
        gst_pad_push_event(side.pad, gst_event_new_flush_stop(resetTime));
        side.needsSegment = true;
    }
    gst_flow_combiner_reset(m_combiner);
    m_isDiscontinuous = true;
    g_rec_mutex_unlock(&m_taskMutex);
    if (m_isPlaying) {
        gst_task_start(m_task);
    }
}

GstCaps* FrameSource::caps() const
{
    const std::lock_guard lock(m_settingsMutex);
    if (m_camera) {
        const zrn::CameraFacts facts = m_camera->facts();
        return capsOf(m_settings.bayer, facts.width, facts.height, m_period);
    }
    return gst_pad_get_pad_template_caps(m_sides.front().pad);
}

std::pair<GstClockTime, GstClockTime> FrameSource::latency() const
{
    const std::lock_guard lock(m_settingsMutex);
    const bool isNewest = m_settings.queuePolicy == zrn::QueuePolicy::Newest;
    const GstClockTime period = toGst(m_period);
    return {period, period * (1 + (isNewest ? 1 : m_settings.queueSize))};
}

SourceSettings FrameSource::settings() const
{
    const std::lock_guard lock(m_settingsMutex);
    return m_settings;
}

void FrameSource::setControl(std::size_t index, int value)
{
    change([=](SourceSettings& settings) { settings.controls[index] = value; });
    const std::shared_ptr<zrn::Camera> open = camera();
    if (open && value != untouched) {
        controls()[index].write(*open, value);
    }
}

int FrameSource::control(std::size_t index) const
{
    const std::shared_ptr<zrn::Camera> open = camera();
    return open ? controls()[index].read(*open) : settings().controls[index];
}

zrn::StreamCounters FrameSource::counters() const
{
    const std::lock_guard lock(m_settingsMutex);
    return m_counters;
}

void FrameSource::reset()
{
    change([](SourceSettings& settings) { settings.controls = allUntouched(); });
    if (const std::shared_ptr<zrn::Camera> open = camera()) {
        open->run(zrn::keys::clearState);
        static_cast<void>(open->exposure()); // known anew
        static_cast<void>(open->gain());
    }
}

GstSample* FrameSource::snapshot(const char* padName) const
{
    std::optional<zrn::Frame> newest;
    {
        const std::lock_guard lock(m_settingsMutex);
        newest = m_newest;
    }
    for (const Side& side : m_sides) {
        const zrn::Image* image = newest ? newest->image(side.letter) : nullptr;
        if (image && g_strcmp0(padName, GST_PAD_NAME(side.pad)) == 0) {
            GstBuffer* buffer = copyImage(*newest, *image);
            stamp(buffer, *newest, runningTime(captureTime(*newest)), GST_CLOCK_TIME_NONE);
            GstCaps* ofBuffer = caps();
            GstSample* sample = gst_sample_new(buffer, ofBuffer, nullptr, nullptr);
            gst_caps_unref(ofBuffer);
            gst_buffer_unref(buffer);
            return sample;
        }
    }
    return nullptr;
}

/// What the task does over and over: waits for a frame and pushes it.
void FrameSource::step()
{
    if (m_isEnding) {
        finish(GST_FLOW_EOS);
        return;
    }
    if (m_isBeginning.exchange(false)) {
        m_position = runningTime(std::chrono::steady_clock::now());
        m_isAway = false;
        m_isDiscontinuous = true;
    }
    std::optional<zrn::Frame> frame;
    std::vector<zrn::StreamEvent> events;
    {
        const std::lock_guard lock(m_streamMutex);
        if (!m_stream) {
            return; // paused
        }
        frame = m_stream->next(look);
        if (frame && captureTime(*frame) < m_begin) {
            frame.reset(); // the driver has kept it from before a pause
        }
        while (std::optional<zrn::StreamEvent> event = m_stream->nextEvent()) {
            events.push_back(*std::move(event));
        }
        const zrn::StreamCounters counters = m_stream->counters();
        const std::lock_guard settingsLock(m_settingsMutex);
        m_counters = counters;
        m_newest = frame ? frame : std::move(m_newest);
    }
    if (!std::ranges::all_of(events, [this](const auto& event) { return handle(event); })) {
        return;
    }
    if (frame) {
        push(*frame);
    } else if (m_isAway) {
        bridge();
    }
}

/// @return whether the stream goes on
bool FrameSource::handle(const zrn::StreamEvent& event)
{
    const std::shared_ptr<zrn::Camera> open = camera();
    using Kind = zrn::StreamEvent::Kind;
    m_isAway = event.kind == Kind::Lost || event.kind == Kind::Refused;
    if (event.kind == Kind::Lost && !settings().reconnect) {
        postError(m_element, outageOf(*open, event.outage));
        finish(GST_FLOW_EOS);
        return false;
    }
    postEvent(m_element, *open, event);
    if (event.kind == Kind::Lost) {
        m_isDiscontinuous = true;
    } else if (!m_isAway) {
        for (const Side& side : m_sides) {
            gst_pad_mark_reconfigure(side.pad); // it may have come back with another size
        }
        try {
            writeAll(*open, settings().controls); // some may have been set meanwhile
        } catch (const zrn::Error& error) {
            postWarning(m_element, error);
        }
    }
    return true;
}

void FrameSource::push(const zrn::Frame& frame)
{
    const GstClockTime pts = runningTime(captureTime(frame));
    const std::uint64_t missing = std::uint64_t{frame.step.missing} + frame.dropped;
    m_isDiscontinuous =
        m_isDiscontinuous || missing > 0 || frame.step.restarted || frame.step.repeated;
    if (missing > 0) {
        postLoss(m_element, pts, toGst(m_period), m_pushed, missing);
    }
    if (GST_CLOCK_TIME_IS_VALID(pts)) {
        gst_object_sync_values(GST_OBJECT(m_element), pts);
        m_position = pts + toGst(m_period);
    }
    GstFlowReturn flow = GST_FLOW_OK;
    for (Side& side : m_sides) {
        flow = gst_flow_combiner_update_pad_flow(m_combiner, side.pad, pushImage(side, frame, pts));
    }
    m_isDiscontinuous = false;
    ++m_pushed;
    const int frameCount = settings().frameCount;
    if (flow == GST_FLOW_OK && frameCount >= 0 &&
        m_pushed >= static_cast<std::uint64_t>(frameCount)) {
        flow = GST_FLOW_EOS;
    }
    if (flow != GST_FLOW_OK) {
        finish(flow);
    }
}

GstFlowReturn FrameSource::pushImage(Side& side, const zrn::Frame& frame, GstClockTime pts)
{
    announce(side);
    if (gst_pad_check_reconfigure(side.pad)) {
        negotiate(side);
    }
    if (!gst_pad_is_linked(side.pad)) {
        return GST_FLOW_NOT_LINKED;
    }
    const zrn::Image* image = frame.image(side.letter);
    const GstClockTime duration = m_period.count() > 0 ? toGst(m_period) : GST_CLOCK_TIME_NONE;
    if (!image) { // a camera of one sensor
        gst_pad_push_event(side.pad, gst_event_new_gap(pts, duration));
        return GST_FLOW_OK;
    }
    GstBuffer* buffer = side.needsCopies ? copyImage(frame, *image) : wrapImage(frame, *image);
    stamp(buffer, frame, pts, duration);
    if (m_isDiscontinuous) {
        GST_BUFFER_FLAG_SET(buffer, GST_BUFFER_FLAG_DISCONT);
    }
    return gst_pad_push(side.pad, buffer);
}

/// Tells who waits for images that there are none for now.
void FrameSource::bridge()
{
    // A frame that is on its way may be this old.
    const GstClockTime until = runningTime(std::chrono::steady_clock::now() - m_period);
    if (!GST_CLOCK_TIME_IS_VALID(until) || until < m_position + bridgeLength) {
        return;
    }
    for (Side& side : m_sides) {
        announce(side);
        gst_pad_push_event(side.pad, gst_event_new_gap(m_position, until - m_position));
    }
    m_position = until;
}

/// Sends the events that come before buffers.
void FrameSource::announce(Side& side)
{
    if (side.needsStart) {
        const std::string name(1, static_cast<char>(g_ascii_tolower(side.letter)));
        gchar* id = gst_pad_create_stream_id(side.pad, m_element, name.c_str());
        GstEvent* event = gst_event_new_stream_start(id);
        gst_event_set_group_id(event, m_groupId);
        gst_pad_push_event(side.pad, event);
        GstCaps* ofCamera = caps();
        gst_pad_push_event(side.pad, gst_event_new_caps(ofCamera));
        gst_caps_unref(ofCamera);
        g_free(id);
    }
    if (side.needsSegment) {
        GstSegment segment;
        gst_segment_init(&segment, GST_FORMAT_TIME);
        gst_pad_push_event(side.pad, gst_event_new_segment(&segment));
    }
    side.needsStart = false;
    side.needsSegment = false;
}

/// Tells the caps, and asks whether rows may be as the camera has them.
void FrameSource::negotiate(Side& side)
{
    GstCaps* ofCamera = caps();
    gst_pad_push_event(side.pad, gst_event_new_caps(ofCamera));
    GstQuery* query = gst_query_new_allocation(ofCamera, FALSE);
    const bool takesAnyRows =
        gst_pad_peer_query(side.pad, query) &&
        gst_query_find_allocation_meta(query, GST_VIDEO_META_API_TYPE, nullptr);
    side.needsCopies = !takesAnyRows && hasUnusualRows(camera()->facts().width);
    gst_query_unref(query);
    gst_caps_unref(ofCamera);
}

void FrameSource::finish(GstFlowReturn flow)
{
    rest();
    if (flow == GST_FLOW_FLUSHING) {
        return;
    }
    {
        const std::lock_guard lock(m_streamMutex);
        m_stream.reset();
    }
    if (flow != GST_FLOW_EOS) {
        GST_ELEMENT_FLOW_ERROR(m_element, flow);
    }
    sendEnd();
}

/// Has the task stand still, unless it is being stopped.
void FrameSource::rest()
{
    const std::lock_guard lock(m_restMutex);
    if (m_mayRest) {
        gst_task_pause(m_task);
    }
}

void FrameSource::sendEnd()
{
    for (Side& side : m_sides) {
        announce(side);
        gst_pad_push_event(side.pad, gst_event_new_eos());
    }
}

/// Of a moment on CLOCK_MONOTONIC; none without a clock.
GstClockTime FrameSource::runningTime(std::chrono::steady_clock::time_point moment) const
{
    GstClock* clock = gst_element_get_clock(m_element);
    if (!clock) {
        return GST_CLOCK_TIME_NONE;
    }
    // A thread that is preempted between the readings would take the pause for a part of the age.
    constexpr int tries = 5;
    GstClockTime now = 0;
    GstClockTime age = 0;
    auto narrowest = std::chrono::steady_clock::duration::max();
    for (int i = 0; i < tries; ++i) {
        const auto before = std::chrono::steady_clock::now();
        const GstClockTime time = gst_clock_get_time(clock);
        const auto width = std::chrono::steady_clock::now() - before;
        if (width < narrowest) {
            narrowest = width;
            now = time - gst_element_get_base_time(m_element);
            age = toGst(before - moment + width / 2);
        }
    }
    gst_object_unref(clock);
    return now > age ? now - age : 0;
}

std::shared_ptr<zrn::Camera> FrameSource::camera() const
{
    const std::lock_guard lock(m_settingsMutex);
    return m_camera;
}

} // namespace zrngst
