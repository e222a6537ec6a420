#include "client/error.h"
#include "recording/formats.h"
#include "recording/target_file.h"

#include <algorithm>
#include <gst/app/gstappsrc.h>
#include <gst/gst.h>
#include <gst/video/video.h>
#include <utility>

namespace zrnrec
{
namespace
{

template <typename Object, auto release>
struct Release {
    void operator()(Object* object) const { release(object); }
};
template <typename Object, auto release>
using Held = std::unique_ptr<Object, Release<Object, release>>;
using ErrorPointer = Held<GError, g_error_free>;
using MessagePointer = Held<GstMessage, gst_message_unref>;

/// An element and the Debian package that has it.
struct Element {
    const char* name;
    const char* package;
};
constexpr Element x264 = {"x264enc", "gstreamer1.0-plugins-ugly"};

bool isThere(const Element& element)
{
    const Held<GstElementFactory, gst_object_unref> factory(
        ::gst_element_factory_find(element.name));
    return factory != nullptr;
}

void requireElements(std::initializer_list<Element> elements)
{
    for (const Element& element : elements) {
        if (!isThere(element)) {
            throw zrn::Error(zrn::Error::Kind::Recording, "NoElement",
                             std::string("GStreamer has no element ") + element.name +
                                 ", which this format needs",
                             std::string("install ") + element.package);
        }
    }
}

/// What the system said, which stands behind the file's name in what an element tells developers.
std::string systemReasonIn(const std::string& detail)
{
    const std::size_t colon = detail.rfind(": ");
    return colon == std::string::npos ? "" : " (" + detail.substr(colon + 2) + ')';
}

/// What makes pictures into what a track holds. @throws zrn::Error
std::string encoderOf(VideoCodec codec)
{
    requireElements(
        {{"appsrc", "gstreamer1.0-plugins-base"}, {"matroskamux", "gstreamer1.0-plugins-good"}});
    if (codec == VideoCodec::Ffv1) {
        requireElements({{"avenc_ffv1", "gstreamer1.0-libav"}});
        return "avenc_ffv1 slicecrc=1";
    }
    requireElements(
        {{"videoconvert", "gstreamer1.0-plugins-base"}, {"h264parse", "gstreamer1.0-plugins-bad"}});
    constexpr Element openH264 = {"openh264enc", "gstreamer1.0-plugins-bad"};
    const bool hasX264 = isThere(x264);
    if (!hasX264 && !isThere(openH264)) {
        requireElements({x264});
    }
    // Every player knows this way to store pictures, and few that of grey alone.
    return std::string("videoconvert ! video/x-raw,format=I420 ! ") +
           (hasX264 ? "x264enc pass=quant quantizer=20 speed-preset=veryfast bframes=0"
                    : "openh264enc rate-control=off qp-min=20 qp-max=24") +
           " ! h264parse";
}

/// A track for each image. The times of frames are those of their arrival, to the microsecond.
class MatroskaFile : public ExportTarget
{
public:
    explicit MatroskaFile(const ExportJob& job)
        : m_job(job)
        , m_target(job.path)
    {
        GError* failure = nullptr;
        if (::gst_init_check(nullptr, nullptr, &failure) == FALSE) {
            const ErrorPointer error(failure);
            fail(error ? error->message : "GStreamer does not start");
        }
        // A cluster's times fit into 16 bits.
        std::string line = "matroskamux name=mux timecodescale=1000 max-cluster-duration=30000000 "
                           "min-cluster-duration=0 writing-app=zrnrec ! filesink name=file";
        const std::string encoder = encoderOf(job.codec);
        for (const char letter : job.stack.letters) {
            line += std::string(" appsrc name=") + letter + " format=time ! " + encoder +
                    " ! queue max-size-time=0 max-size-bytes=0 max-size-buffers=8 ! mux.";
        }
        m_pipeline.reset(::gst_parse_launch(line.c_str(), &failure));
        const ErrorPointer error(failure);
        if (!m_pipeline || error) {
            fail(error ? error->message : "no pipeline");
        }
        m_bus.reset(::gst_element_get_bus(m_pipeline.get()));
        const ElementPointer file = element("file");
        ::g_object_set(file.get(), "location", m_target.temporaryPath().c_str(), nullptr);
        for (const char letter : job.stack.letters) {
            addSource(letter);
        }
    }

    ~MatroskaFile() override
    {
        if (m_pipeline) {
            ::gst_element_set_state(m_pipeline.get(), GST_STATE_NULL);
        }
    }
    MatroskaFile(const MatroskaFile&) = delete;
    MatroskaFile& operator=(const MatroskaFile&) = delete;

    void write(const ExportFrame& frame) override
    {
        const std::int64_t time = timeOf(frame.facts.arrival);
        if (!m_isPlaying) {
            start(frame.facts);
        }
        waitForRoom();
        for (std::size_t i = 0; i < m_sources.size(); ++i) {
            push(m_sources[i].get(), frame.frame, frame.frame.stored.at(i), time);
        }
    }

    void finish() override
    {
        for (const ElementPointer& source : m_sources) {
            ::gst_app_src_end_of_stream(GST_APP_SRC(source.get()));
        }
        while (!m_job.isStopped()) {
            const MessagePointer message = nextMessage(glance);
            if (message && GST_MESSAGE_TYPE(message.get()) == GST_MESSAGE_EOS) {
                ::gst_element_set_state(m_pipeline.get(), GST_STATE_NULL);
                m_target.commit();
                return;
            }
            m_job.onWaiting("the last frames are encoded");
        }
        fail("it was not finished");
    }

private:
    using ElementPointer = Held<GstElement, gst_object_unref>;
    static constexpr GstClockTime glance = 50 * GST_MSECOND;

    [[noreturn]] void fail(const std::string& why) const { failToWrite(m_target.path(), why); }

    [[nodiscard]] ElementPointer element(const char* name) const
    {
        return ElementPointer(::gst_bin_get_by_name(GST_BIN(m_pipeline.get()), name));
    }

    void addSource(char letter)
    {
        ElementPointer source = element(std::string(1, letter).c_str());
        if (!source) {
            fail("its images have the same letter");
        }
        const Held<GstCaps, gst_caps_unref> caps(::gst_caps_new_simple(
            "video/x-raw", "format", G_TYPE_STRING, "GRAY8", "width", G_TYPE_INT,
            static_cast<int>(m_job.stack.width), "height", G_TYPE_INT,
            static_cast<int>(m_job.stack.height), "framerate", GST_TYPE_FRACTION, 0, 1, nullptr));
        ::gst_app_src_set_caps(GST_APP_SRC(source.get()), caps.get());
        m_sources.push_back(std::move(source));
    }

    void start(const FrameFacts& first)
    {
        const ElementPointer mux = element("mux");
        if (first.utc) {
            const Held<GDateTime, g_date_time_unref> date(
                ::g_date_time_new_from_unix_utc(*first.utc / GST_SECOND));
            ::g_object_set(mux.get(), "creation-time", date.get(), nullptr);
        }
        ::gst_tag_setter_add_tags(GST_TAG_SETTER(mux.get()), GST_TAG_MERGE_REPLACE, GST_TAG_TITLE,
                                  m_job.recording.file.c_str(), nullptr);
        ::gst_element_set_state(m_pipeline.get(), GST_STATE_PLAYING);
        for (std::size_t i = 0; i < m_sources.size(); ++i) {
            const std::string name(1, m_job.stack.letters[i]);
            ::gst_element_send_event(
                m_sources[i].get(),
                ::gst_event_new_tag(::gst_tag_list_new(GST_TAG_TITLE, name.c_str(), nullptr)));
        }
        m_isPlaying = true;
    }

    /// In microseconds since the first frame of the file; it always grows, whatever a damaged
    /// recording says.
    std::int64_t timeOf(std::int64_t arrival)
    {
        constexpr std::int64_t half = 500;
        constexpr std::int64_t whole = 1000;
        if (!m_first) {
            m_first = arrival;
            m_last = 0;
            return 0;
        }
        const std::int64_t since = interval(*m_first, arrival);
        m_last = std::max(since / whole + (since % whole >= half ? 1 : 0), m_last + 1);
        return m_last;
    }

    /// Frames are read faster than they are encoded.
    void waitForRoom()
    {
        constexpr guint64 mostWaiting = 8;
        const auto isFull = [](const ElementPointer& source) {
            return ::gst_app_src_get_current_level_buffers(GST_APP_SRC(source.get())) >=
                   mostWaiting;
        };
        constexpr GstClockTime moment = 2 * GST_MSECOND;
        for (GstClockTime wait = 0; wait == 0 || std::ranges::any_of(m_sources, isFull);
             wait = moment) {
            if (m_job.isStopped()) {
                return;
            }
            nextMessage(wait);
        }
    }

    /// @return the one that ends the file; null when there is none in time @throws zrn::Error
    MessagePointer nextMessage(GstClockTime longest)
    {
        MessagePointer message(::gst_bus_timed_pop_filtered(
            m_bus.get(), longest,
            static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR)));
        if (message && GST_MESSAGE_TYPE(message.get()) == GST_MESSAGE_ERROR) {
            GError* failure = nullptr;
            gchar* detail = nullptr;
            ::gst_message_parse_error(message.get(), &failure, &detail);
            const ErrorPointer error(failure);
            const Held<gchar, g_free> text(detail);
            fail(error->message + systemReasonIn(text ? text.get() : ""));
        }
        return message;
    }

    static void push(GstElement* source, const zrn::Frame& frame, const zrn::Image& image,
                     std::int64_t time)
    {
        const auto pixels = image.pixels();
        using Memory = std::shared_ptr<const void>;
        GstBuffer* const buffer = ::gst_buffer_new_wrapped_full(
            GST_MEMORY_FLAG_READONLY, const_cast<std::uint8_t*>(pixels.data()), pixels.size(), 0,
            pixels.size(), new Memory(frame.memory),
            [](gpointer memory) { delete static_cast<Memory*>(memory); });
        // Rows without padding, which GStreamer takes for granted only where they end at fours.
        gsize offsets[GST_VIDEO_MAX_PLANES] = {};
        gint strides[GST_VIDEO_MAX_PLANES] = {static_cast<gint>(frame.width)};
        ::gst_buffer_add_video_meta_full(buffer, GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_FORMAT_GRAY8,
                                         frame.width, frame.height, 1, offsets, strides);
        GST_BUFFER_PTS(buffer) = static_cast<GstClockTime>(time) * GST_USECOND;
        ::gst_app_src_push_buffer(GST_APP_SRC(source), buffer);
    }

    const ExportJob m_job;
    TargetFile m_target;
    ElementPointer m_pipeline;
    Held<GstBus, gst_object_unref> m_bus;
    std::vector<ElementPointer> m_sources;
    bool m_isPlaying = false;
    std::optional<std::int64_t> m_first; ///< arrival
    std::int64_t m_last = 0;             ///< microseconds
};

} // namespace

std::unique_ptr<ExportTarget> makeMatroskaFile(const ExportJob& job)
{
    return std::make_unique<MatroskaFile>(job);
}

} // namespace zrnrec
