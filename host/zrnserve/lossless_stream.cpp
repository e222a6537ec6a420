#include "zrnserve/lossless_stream.h"

#include "zrnserve/note.h"

#include <chrono>
#include <stdexcept>

namespace zrnserve
{
namespace
{

using namespace std::chrono_literals;

/// Before a camera that could not be had is asked for again.
constexpr std::chrono::seconds nextAttempt(2);

/// Images that wait for an encoder.
constexpr guint64 mostImages = 16;

/// Bytes that wait to be sent; beyond, the encoders wait.
constexpr guint64 mostUnsent = guint64{32} << 20;

/// How long packets that were lost on the way are sent again, in milliseconds.
constexpr int resendTime = 2000;

constexpr int strongestKey = 32;

GstAppSrc* newImages()
{
    GstElement* images = gst_element_factory_make("appsrc", nullptr);
    g_object_set(images, "is-live", TRUE, "format", GST_FORMAT_TIME, "max-bytes", guint64{0},
                 "max-buffers", mostImages, "leaky-type", GST_APP_LEAKY_TYPE_DOWNSTREAM, nullptr);
    return GST_APP_SRC(gst_object_ref_sink(images));
}

} // namespace

/// The camera's images on their way into the stream.
class LosslessStream::Encoding
{
public:
    Encoding(SharedCamera& camera, GstAppSinkCallbacks callbacks, gpointer data)
        : m_imagesA(newImages())
        , m_imagesB(newImages())
        , m_viewingB(camera.look(View::B, m_imagesB))
        , m_viewingA(m_viewingB ? camera.look(View::A, m_imagesA) : nullptr)
    {
        if (!m_viewingB) {
            return;
        }
        m_pipeline = gst_pipeline_new(nullptr);
        g_autoptr(GstClock) clock = gst_system_clock_obtain();
        gst_pipeline_use_clock(GST_PIPELINE(m_pipeline), clock);
        // Each frame is a cluster: a receiver that comes later begins with the next one.
        GstElement* mux = gst_element_factory_make("matroskamux", nullptr);
        g_object_set(mux, "streamable", TRUE, "min-cluster-duration", gint64{0}, nullptr);
        GstElement* sink = gst_element_factory_make("appsink", nullptr);
        g_object_set(sink, "sync", FALSE, "async", FALSE, nullptr);
        gst_app_sink_set_callbacks(GST_APP_SINK(sink), &callbacks, data, nullptr);
        gst_bin_add_many(GST_BIN(m_pipeline), mux, sink, nullptr);
        gst_element_link(mux, sink);
        if (m_viewingA) {
            encode(m_imagesA, mux);
        }
        encode(m_imagesB, mux);
        gst_element_set_state(m_pipeline, GST_STATE_PLAYING);
    }

    ~Encoding()
    {
        m_viewingA.reset();
        m_viewingB.reset();
        if (m_pipeline) {
            gst_element_set_state(m_pipeline, GST_STATE_NULL);
            gst_object_unref(m_pipeline);
        }
        gst_object_unref(m_imagesA);
        gst_object_unref(m_imagesB);
    }

    Encoding(const Encoding&) = delete;
    Encoding& operator=(const Encoding&) = delete;

    bool isRunning() const { return m_pipeline != nullptr; }

private:
    void encode(GstAppSrc* images, GstElement* mux)
    {
        GstElement* encoder = gst_element_factory_make("avenc_ffv1", nullptr);
        gst_bin_add_many(GST_BIN(m_pipeline), GST_ELEMENT(images), encoder, nullptr);
        gst_element_link_many(GST_ELEMENT(images), encoder, mux, nullptr);
    }

    GstAppSrc* const m_imagesA;
    GstAppSrc* const m_imagesB;
    std::unique_ptr<SharedCamera::Viewing> m_viewingB;
    std::unique_ptr<SharedCamera::Viewing> m_viewingA;
    GstElement* m_pipeline = nullptr;
};

LosslessStream::LosslessStream(std::shared_ptr<SharedCamera> camera, const std::string& address,
                               int port, const std::string& passphrase)
    : m_camera(std::move(camera))
    , m_port(port)
{
    for (const char* name : {"avenc_ffv1", "matroskamux", "srtsink"}) {
        g_autoptr(GstElementFactory) factory = gst_element_factory_find(name);
        if (!factory) {
            throw std::runtime_error(
                std::string("GStreamer does not know ") + name +
                ": install gstreamer1.0-plugins-good, -bad and gstreamer1.0-libav");
        }
    }
    m_sender = gst_parse_launch("appsrc name=stream is-live=true format=bytes block=true ! "
                                "srtsink name=sink mode=listener wait-for-connection=false "
                                "sync=false async=false",
                                nullptr);
    m_stream = GST_APP_SRC(gst_bin_get_by_name(GST_BIN(m_sender), "stream"));
    gst_app_src_set_max_bytes(m_stream, mostUnsent);
    g_autoptr(GstElement) sink = gst_bin_get_by_name(GST_BIN(m_sender), "sink");
    g_object_set(sink, "localaddress", address.c_str(), "localport", static_cast<guint>(port),
                 "latency", resendTime, nullptr);
    if (!passphrase.empty()) {
        g_object_set(sink, "passphrase", passphrase.c_str(), "pbkeylen", strongestKey, nullptr);
    }
    g_signal_connect_swapped(
        sink, "caller-added",
        G_CALLBACK(+[](LosslessStream* self, int, GSocketAddress* peer) { self->change(1, peer); }),
        this);
    g_signal_connect_swapped(sink, "caller-removed",
                             G_CALLBACK(+[](LosslessStream* self, int, GSocketAddress* peer) {
                                 self->change(-1, peer);
                             }),
                             this);
    if (gst_element_set_state(m_sender, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        gst_element_set_state(m_sender, GST_STATE_NULL);
        gst_object_unref(m_stream);
        gst_object_unref(m_sender);
        throw std::runtime_error(address + ", port " + std::to_string(port) +
                                 " cannot be listened on by SRT");
    }
    m_thread = std::thread([this] { run(); });
}

LosslessStream::~LosslessStream()
{
    {
        const std::lock_guard lock(m_mutex);
        m_isEnding = true;
        m_changed.notify_all();
    }
    // First, so that encoders do not wait for what is unsent.
    gst_element_set_state(m_sender, GST_STATE_NULL);
    m_thread.join();
    gst_object_unref(m_stream);
    gst_object_unref(m_sender);
}

void LosslessStream::change(int receivers, GSocketAddress* address)
{
    g_autofree char* name =
        address ? g_socket_connectable_to_string(G_SOCKET_CONNECTABLE(address)) : nullptr;
    note("%s: %s by SRT", name ? name : "a client", receivers > 0 ? "connected" : "disconnected");
    const std::lock_guard lock(m_mutex);
    m_receivers += receivers;
    m_changed.notify_all();
}

void LosslessStream::run()
{
    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = onData;
    std::unique_lock lock(m_mutex);
    while (!m_isEnding) {
        m_changed.wait(lock, [this] { return m_isEnding || m_receivers > 0; });
        if (m_isEnding) {
            return;
        }
        lock.unlock();
        auto encoding = std::make_unique<Encoding>(*m_camera, callbacks, this);
        lock.lock();
        if (encoding->isRunning()) {
            m_changed.wait(lock, [this] { return m_isEnding || m_receivers <= 0; });
        }
        lock.unlock();
        const bool wasRunning = encoding->isRunning();
        encoding.reset();
        lock.lock();
        if (!wasRunning) {
            m_changed.wait_for(lock, nextAttempt, [this] { return m_isEnding; });
        }
    }
}

GstFlowReturn LosslessStream::onData(GstAppSink* sink, gpointer self)
{
    if (GstSample* sample = gst_app_sink_pull_sample(sink)) {
        gst_app_src_push_sample(static_cast<LosslessStream*>(self)->m_stream, sample);
        gst_sample_unref(sample);
    }
    return GST_FLOW_OK;
}

} // namespace zrnserve
