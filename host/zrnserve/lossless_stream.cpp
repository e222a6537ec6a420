#include "zrnserve/lossless_stream.h"

#include "zrnserve/note.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <utility>

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

/// Each has its own buffers of what it has not taken yet, and its own encryption.
constexpr int mostReceivers = 16;

/// How often it is looked for receivers that have gone while nothing was sent.
constexpr std::chrono::seconds receiverCheck(1);

std::string nameOf(GSocketAddress* address)
{
    g_autofree char* name =
        address ? g_socket_connectable_to_string(G_SOCKET_CONNECTABLE(address)) : nullptr;
    return name ? name : "a client";
}

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
    Encoding(SharedCamera& camera, GstAppSinkCallbacks callbacks, GstBusSyncHandler onMessage,
             gpointer data)
        : m_imagesA(newImages())
        , m_imagesB(newImages())
        , m_viewingB(camera.look(View::B, m_imagesB))
        , m_viewingA(m_viewingB ? camera.look(View::A, m_imagesA) : nullptr)
    {
        if (!m_viewingB || (!m_viewingA && !camera.hasOneSensor())) {
            return;
        }
        m_pipeline = gst_pipeline_new(nullptr);
        g_autoptr(GstBus) bus = gst_element_get_bus(m_pipeline);
        gst_bus_set_sync_handler(bus, onMessage, data, nullptr);
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
    m_sink = gst_bin_get_by_name(GST_BIN(m_sender), "sink");
    g_object_set(m_sink, "localaddress", address.c_str(), "localport", static_cast<guint>(port),
                 "latency", resendTime, "authentication", TRUE, nullptr);
    if (!passphrase.empty()) {
        g_object_set(m_sink, "passphrase", passphrase.c_str(), "pbkeylen", strongestKey, nullptr);
    }
    g_signal_connect_swapped(
        m_sink, "caller-added",
        G_CALLBACK(+[](LosslessStream* self, int, GSocketAddress* peer) { self->change(1, peer); }),
        this);
    g_signal_connect_swapped(m_sink, "caller-removed",
                             G_CALLBACK(+[](LosslessStream* self, int, GSocketAddress* peer) {
                                 self->change(-1, peer);
                             }),
                             this);
    g_signal_connect_swapped(
        m_sink, "caller-connecting",
        G_CALLBACK(+[](LosslessStream* self, GSocketAddress* peer, const char*) -> gboolean {
            return self->admits(peer);
        }),
        this);
    g_autoptr(GstBus) bus = gst_element_get_bus(m_sender);
    gst_bus_set_sync_handler(bus, onMessage, this, nullptr);
    if (!send()) {
        gst_object_unref(m_stream);
        gst_object_unref(m_sink);
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
    m_thread.join();
    gst_object_unref(m_stream);
    gst_object_unref(m_sink);
    gst_object_unref(m_sender);
}

void LosslessStream::change(int receivers, GSocketAddress* address)
{
    note("%s: %s %s by SRT", nameOf(address).c_str(),
         receivers > 0 ? "connected to" : "disconnected from", m_camera->serial().c_str());
    const std::lock_guard lock(m_mutex);
    m_callers += receivers;
    m_changed.notify_all();
}

/// Called before its passphrase is known.
bool LosslessStream::admits(GSocketAddress* address) const
{
    if (m_callers - m_gone < mostReceivers) {
        return true;
    }
    note("%s: refused, there are %d receivers of %s already", nameOf(address).c_str(),
         mostReceivers, m_camera->serial().c_str());
    return false;
}

std::vector<LosslessStream::Receiver> LosslessStream::receivers() const
{
    std::vector<Receiver> receivers;
    g_autoptr(GstStructure) statistics = nullptr;
    g_object_get(m_sink, "stats", &statistics, nullptr);
    const GValue* list = statistics ? gst_structure_get_value(statistics, "callers") : nullptr;
    const auto* callers = list ? static_cast<const GValueArray*>(g_value_get_boxed(list)) : nullptr;
    if (!callers) {
        return receivers;
    }
    for (guint i = 0; i < callers->n_values; ++i) {
        const GstStructure* caller = gst_value_get_structure(&callers->values[i]);
        guint64 sent = 0;
        g_autoptr(GSocketAddress) address = nullptr;
        gst_structure_get(caller, "caller-address", G_TYPE_SOCKET_ADDRESS, &address, nullptr);
        if (gst_structure_get_uint64(caller, "bytes-sent", &sent)) { // of none that has gone
            receivers.push_back({nameOf(address), sent});
        }
    }
    return receivers;
}

/// Called without m_mutex.
bool LosslessStream::send()
{
    {
        const std::lock_guard lock(m_mutex);
        m_hasFailed = false;
    }
    if (gst_element_set_state(m_sender, GST_STATE_PLAYING) != GST_STATE_CHANGE_FAILURE) {
        return true;
    }
    endSending();
    return false;
}

/// Whoever receives is disconnected. Called without m_mutex.
void LosslessStream::endSending()
{
    gst_element_set_state(m_sender, GST_STATE_NULL);
    m_callers = 0;
    m_gone = 0;
}

void LosslessStream::run()
{
    std::unique_lock lock(m_mutex);
    while (!m_isEnding) {
        m_changed.wait(lock, [this] { return m_isEnding || m_hasFailed || m_callers > 0; });
        bool isDone = false;
        if (!m_isEnding && !m_hasFailed) {
            lock.unlock();
            isDone = encodeWhileReceived();
            lock.lock();
        }
        bool isToWait = m_hasFailed;
        while (!m_isEnding && (isDone || m_hasFailed || isToWait)) {
            lock.unlock();
            endSending();
            lock.lock();
            if (isToWait) {
                m_changed.wait_for(lock, nextAttempt, [this] { return m_isEnding; });
            }
            lock.unlock();
            isToWait = !send();
            isDone = false;
            lock.lock();
        }
    }
    lock.unlock();
    endSending();
}

/// Until nobody receives any more, or something fails. @return whether there are connections left
/// that are good for nothing
bool LosslessStream::encodeWhileReceived()
{
    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = onData;
    std::unique_ptr<Encoding> encoding;
    while (true) {
        // Those that go while the camera is away are noticed by nothing else.
        const int count = static_cast<int>(receivers().size());
        if (count == 0) {
            break;
        }
        m_gone = m_callers - count;
        if (!encoding) {
            encoding = std::make_unique<Encoding>(*m_camera, callbacks, onMessage, this);
        }
        const bool isRunning = encoding->isRunning();
        if (!isRunning) {
            encoding.reset();
        }
        std::unique_lock lock(m_mutex);
        const auto isOver = [this] { return m_isEnding || m_hasFailed || m_callers == 0; };
        if (m_changed.wait_for(lock, isRunning ? receiverCheck : nextAttempt, isOver)) {
            if (m_isEnding || m_hasFailed) {
                lock.unlock();
                endSending(); // first, so that encoders do not wait for what is unsent
            }
            break;
        }
    }
    encoding.reset();
    // Those that have gone, and who came in the meantime and got a beginning that does not go on.
    const std::vector<Receiver> left = receivers();
    return m_callers > static_cast<int>(left.size()) ||
           std::ranges::any_of(left, [](const Receiver& one) { return one.sent > 0; });
}

GstBusSyncReply LosslessStream::onMessage(GstBus* /*bus*/, GstMessage* message, gpointer self)
{
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
        static_cast<LosslessStream*>(self)->fail(message);
    }
    gst_message_unref(message);
    return GST_BUS_DROP;
}

void LosslessStream::fail(GstMessage* message)
{
    g_autoptr(GError) error = nullptr;
    gst_message_parse_error(message, &error, nullptr);
    const std::lock_guard lock(m_mutex);
    if (m_isEnding || std::exchange(m_hasFailed, true)) {
        return;
    }
    ++m_failures;
    note("%s: its lossless stream ends, %s", m_camera->serial().c_str(), error->message);
    m_changed.notify_all();
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
