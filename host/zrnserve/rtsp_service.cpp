#include "zrnserve/rtsp_service.h"

#include "zrnserve/note.h"

#include <gst/rtp/gstrtphdrext.h>
#include <gst/video/video.h>
#include <linux/sockios.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <thread>
#include <vector>

namespace zrnserve
{
namespace
{

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// A client that has taken nothing of what waits for it at so many checks in a row reads too
/// slowly. Checks are counted, not time, which a starved server would hold against its clients.
constexpr int mostFullChecks = 50;

/// gst-rtsp-server takes a client off its stream that lets more than ten seconds of pictures and
/// more than a hundred of them wait, and leaves the connection open without a word. At one check, a
/// client that is just leaving looks the same.
constexpr int mostCutOffChecks = 2;

/// Bytes that the kernel takes for a client beyond those on their way; the pictures after them wait
/// where all clients of a stream share them.
constexpr int mostUnsentBytes = 256 * 1024;

/// As many before its first request, encryption included.
constexpr int mostSilentChecks = 50;
constexpr guint slowCheckMilliseconds = 200;
constexpr guint sessionCheckSeconds = 5;

/// Longer than opening a camera takes, which a client may be waiting for.
constexpr std::chrono::seconds longestEnd(10);

/// Images that wait for an encoder.
constexpr guint64 longestQueue = 3;

/// In the kernel's statistics of a connection that neither side has ended.
constexpr int tcpEstablished = 1;

constexpr gint postSessionSeconds = 60;
constexpr guint longestRequest = 64 * 1024;

/// Of one connection: one for each view, and one more.
constexpr guint mostSessions = 4;

/// The capture time goes with the frames, as in RFC 6051.
constexpr const char* captureTimeUri = "urn:ietf:params:rtp-hdrext:ntp-64";
constexpr guint captureTimeId = 1;
constexpr const char* viewerRole = "viewer";
constexpr const char* viewingKey = "zrn-viewing";
constexpr const char* addressKey = "zrn-address";
constexpr const char* playingKey = "zrn-playing";

// One thread makes one slice of each image: FFmpeg takes several for as many images.
constexpr const char* h264Launch =
    "( appsrc name=images ! videoconvert ! video/x-raw,format=I420 ! "
    "x264enc name=encoder tune=zerolatency speed-preset=superfast bitrate=8000 key-int-max=30 "
    "threads=1 ! "
    "rtph264pay name=pay0 pt=96 config-interval=-1 )";
constexpr const char* jpegLaunch =
    "( appsrc name=images ! videoconvert ! video/x-raw,format=I420 ! "
    "jpegenc name=encoder ! rtpjpegpay name=pay0 pt=26 )";

/// What of a view is needed to make its pipeline.
struct ViewSource {
    std::shared_ptr<SharedCamera> camera;
    View view;
    Coding coding;
};

struct ViewFactory {
    GstRTSPMediaFactory factory;
    ViewSource* source;
};

struct ViewFactoryClass {
    GstRTSPMediaFactoryClass parent;
};

struct ViewMedia {
    GstRTSPMedia media;
};

struct ViewMediaClass {
    GstRTSPMediaClass parent;
};

} // namespace

G_DEFINE_TYPE(ViewFactory, zrn_view_factory, GST_TYPE_RTSP_MEDIA_FACTORY)
G_DEFINE_TYPE(ViewMedia, zrn_view_media, GST_TYPE_RTSP_MEDIA)

namespace
{

template <typename Object>
Object* reference(Object* object)
{
    return static_cast<Object*>((g_object_ref)(object));
}

void deleteViewing(gpointer viewing)
{
    delete static_cast<SharedCamera::Viewing*>(viewing);
}

void addCaptureTimes(GstElement* payloader)
{
    GstRTPHeaderExtension* extension = gst_rtp_header_extension_create_from_uri(captureTimeUri);
    if (extension) {
        gst_rtp_header_extension_set_id(extension, captureTimeId);
        g_object_set(extension, "every-packet", TRUE, nullptr);
        g_signal_emit_by_name(payloader, "add-extension", extension);
        gst_object_unref(extension);
    }
}

/// What is sent beside the pictures names their capture time as well, not that of sending.
gboolean setupRtpbin(GstRTSPMedia* media, GstElement* rtpbin)
{
    g_object_set(rtpbin, "rtcp-sync-send-time", FALSE, "update-ntp64-header-ext", FALSE, nullptr);
    GstRTSPMediaClass* parent = GST_RTSP_MEDIA_CLASS(zrn_view_media_parent_class);
    return !parent->setup_rtpbin || parent->setup_rtpbin(media, rtpbin);
}

GstElement* createElement(GstRTSPMediaFactory* factory, const GstRTSPUrl* /*url*/)
{
    const ViewSource& source = *reinterpret_cast<ViewFactory*>(factory)->source;
    g_autoptr(GError) error = nullptr;
    GstElement* bin = gst_parse_launch_full(source.coding == Coding::H264 ? h264Launch : jpegLaunch,
                                            nullptr, GST_PARSE_FLAG_PLACE_IN_BIN, &error);
    if (!bin) {
        note("%s: %s", source.camera->serial().c_str(), error->message);
        return nullptr;
    }
    g_autoptr(GstElement) payloader = gst_bin_get_by_name(GST_BIN(bin), "pay0");
    addCaptureTimes(payloader);
    g_autoptr(GstElement) images = gst_bin_get_by_name(GST_BIN(bin), "images");
    g_object_set(images, "is-live", TRUE, "format", GST_FORMAT_TIME, "max-bytes", guint64{0},
                 "max-buffers", longestQueue, "leaky-type", GST_APP_LEAKY_TYPE_DOWNSTREAM, nullptr);
    std::unique_ptr<SharedCamera::Viewing> viewing =
        source.camera->look(source.view, GST_APP_SRC(images));
    if (!viewing) {
        gst_object_unref(gst_object_ref_sink(bin));
        return nullptr;
    }
    g_object_set_data_full(G_OBJECT(bin), viewingKey, viewing.release(), deleteViewing);
    return bin;
}

/// The last client has gone.
void endViewing(GstRTSPMedia* media, gpointer /*data*/)
{
    g_autoptr(GstElement) bin = gst_rtsp_media_get_element(media);
    g_object_set_data(G_OBJECT(bin), viewingKey, nullptr);
}

void configure(GstRTSPMediaFactory* factory, GstRTSPMedia* media)
{
    GST_RTSP_MEDIA_FACTORY_CLASS(zrn_view_factory_parent_class)->configure(factory, media);
    const ViewSource& source = *reinterpret_cast<ViewFactory*>(factory)->source;
    g_object_set_data_full(G_OBJECT(media), addressKey,
                           g_strdup(addressOf(*source.camera, source.view).c_str()), g_free);
    // After the factory has forgotten it: closing takes a while, and who comes then needs a new
    // one.
    g_signal_connect_after(media, "unprepared", G_CALLBACK(endViewing), nullptr);
}

/// A factory is one view, whatever a client appends to its address.
gchar* keyOf(GstRTSPMediaFactory* /*factory*/, const GstRTSPUrl* /*url*/)
{
    return g_strdup("view");
}

void finalizeFactory(GObject* object)
{
    delete reinterpret_cast<ViewFactory*>(object)->source;
    G_OBJECT_CLASS(zrn_view_factory_parent_class)->finalize(object);
}

GstRTSPMediaFactory* newFactory(ViewSource source)
{
    auto* self = static_cast<ViewFactory*>(g_object_new(zrn_view_factory_get_type(), nullptr));
    self->source = new ViewSource(std::move(source));
    GstRTSPMediaFactory* factory = &self->factory;
    gst_rtsp_media_factory_set_shared(factory, TRUE);
    gst_rtsp_media_factory_set_media_gtype(factory, zrn_view_media_get_type());
    // Inside the connection: as encrypted as that is, and for nobody but its client.
    gst_rtsp_media_factory_set_protocols(factory, GST_RTSP_LOWER_TRANS_TCP);
    g_autoptr(GstClock) clock = gst_system_clock_obtain();
    gst_rtsp_media_factory_set_clock(factory, clock);
    gst_rtsp_media_factory_add_role(factory, viewerRole, GST_RTSP_PERM_MEDIA_FACTORY_ACCESS,
                                    G_TYPE_BOOLEAN, TRUE, GST_RTSP_PERM_MEDIA_FACTORY_CONSTRUCT,
                                    G_TYPE_BOOLEAN, TRUE, nullptr);
    return factory;
}

GstRTSPAuth* newAuth(const Access& access)
{
    GstRTSPAuth* auth = gst_rtsp_auth_new();
    gst_rtsp_auth_set_realm(auth, "zrnserve");
    if (access.certificate()) {
        gst_rtsp_auth_set_tls_certificate(auth, access.certificate());
    }
    g_autoptr(GstRTSPToken) viewer =
        gst_rtsp_token_new(GST_RTSP_TOKEN_MEDIA_FACTORY_ROLE, G_TYPE_STRING, viewerRole, nullptr);
    gst_rtsp_auth_set_supported_methods(auth, GST_RTSP_AUTH_DIGEST);
    for (const auto& [user, password] : access.passwords()) {
        gst_rtsp_auth_add_digest(auth, user.c_str(), password.c_str(), viewer);
    }
    if (access.passwords().empty()) {
        gst_rtsp_auth_set_default_token(auth, viewer);
    }
    return auth;
}

/// A stream is looked at from its next key frame on: one is made for who comes later.
void beginPlaying(GstRTSPClient* /*client*/, GstRTSPContext* context, gpointer /*data*/)
{
    if (!context->media || !context->sessmedia) {
        return;
    }
    g_object_set_data(G_OBJECT(context->sessmedia), playingKey, context->sessmedia);
    g_autoptr(GstElement) bin = gst_rtsp_media_get_element(context->media);
    g_autoptr(GstElement) encoder = gst_bin_get_by_name(GST_BIN(bin), "encoder");
    if (encoder) {
        gst_element_send_event(
            encoder, gst_video_event_new_upstream_force_key_unit(GST_CLOCK_TIME_NONE, TRUE, 0));
    }
}

/// Before the client is taken off its stream because it asks for that.
GstRTSPStatusCode endPlaying(GstRTSPClient* /*client*/, GstRTSPContext* context, gpointer /*data*/)
{
    if (context->sessmedia) {
        g_object_set_data(G_OBJECT(context->sessmedia), playingKey, nullptr);
    }
    return GST_RTSP_STS_OK;
}

/// The socket of a client that has not gone yet, or null.
GSocket* socketOf(GstRTSPClient* client)
{
    GstRTSPConnection* connection = gst_rtsp_client_get_connection(client);
    return connection ? gst_rtsp_connection_get_read_socket(connection) : nullptr;
}

/// Tells who gave a wrong password; a request without any is how clients learn that one is needed.
void noteRefusal(GstRTSPClient* client, GstRTSPContext* context, GstRTSPMessage* response,
                 gpointer wrongPasswords)
{
    GstRTSPStatusCode code = GST_RTSP_STS_OK;
    char* credentials = nullptr;
    if (gst_rtsp_message_get_type(response) == GST_RTSP_MESSAGE_RESPONSE &&
        gst_rtsp_message_parse_response(response, &code, nullptr, nullptr) == GST_RTSP_OK &&
        code == GST_RTSP_STS_UNAUTHORIZED && context && context->request &&
        gst_rtsp_message_get_header(context->request, GST_RTSP_HDR_AUTHORIZATION, &credentials,
                                    0) == GST_RTSP_OK) {
        static_cast<WrongPasswords*>(wrongPasswords)->add(socketOf(client));
    }
}

/// A session is memory for as long as it lives.
GstRTSPStatusCode limitSessions(GstRTSPClient* client, GstRTSPContext* context, gpointer /*data*/)
{
    if (context->session) {
        return GST_RTSP_STS_OK;
    }
    GList* sessions = gst_rtsp_client_session_filter(client, nullptr, nullptr);
    const guint count = g_list_length(sessions);
    g_list_free_full(sessions, g_object_unref);
    if (count < mostSessions) {
        return GST_RTSP_STS_OK;
    }
    note("%s: refused, it has %u sessions already", peerOf(socketOf(client)).c_str(), count);
    return GST_RTSP_STS_SERVICE_UNAVAILABLE;
}

bool isUnsent(GSocket* socket)
{
    int bytes = 0;
    return ::ioctl(g_socket_get_fd(socket), SIOCOUTQNSD, &bytes) == 0 && bytes > 0;
}

/// Among others how many bytes the client's machine has taken since it is connected.
tcp_info infoOf(GSocket* socket)
{
    tcp_info info{};
    socklen_t size = sizeof info;
    ::getsockopt(g_socket_get_fd(socket), IPPROTO_TCP, TCP_INFO, &info, &size);
    return info;
}

bool isOnStream(GstRTSPStreamTransport* transport)
{
    GstRTSPStream* stream = gst_rtsp_stream_transport_get_stream(transport);
    GList* transports = gst_rtsp_stream_transport_filter(stream, nullptr, nullptr);
    const bool isFound = g_list_find(transports, transport) != nullptr;
    g_list_free_full(transports, g_object_unref);
    return isFound;
}

bool isCutOff(GstRTSPSessionMedia* playing)
{
    const guint streams = gst_rtsp_media_n_streams(gst_rtsp_session_media_get_media(playing));
    for (guint i = 0; i < streams; ++i) {
        GstRTSPStreamTransport* transport = gst_rtsp_session_media_get_transport(playing, i);
        if (transport && !isOnStream(transport)) {
            return true;
        }
    }
    return false;
}

/// Whether pictures that a client asked for do not come to it any more.
bool isCutOff(GstRTSPClient* client)
{
    bool isFound = false;
    GList* sessions = gst_rtsp_client_session_filter(client, nullptr, nullptr);
    for (GList* session = sessions; session; session = session->next) {
        GList* medias = gst_rtsp_session_filter(GST_RTSP_SESSION(session->data), nullptr, nullptr);
        for (GList* media = medias; media; media = media->next) {
            isFound = isFound || (g_object_get_data(G_OBJECT(media->data), playingKey) &&
                                  isCutOff(GST_RTSP_SESSION_MEDIA(media->data)));
        }
        g_list_free_full(medias, g_object_unref);
    }
    g_list_free_full(sessions, g_object_unref);
    return isFound;
}

GstRTSPFilterResult countViewers(GstRTSPSession* /*session*/, GstRTSPSessionMedia* sessionMedia,
                                 gpointer counts)
{
    GstRTSPMedia* media = gst_rtsp_session_media_get_media(sessionMedia);
    const auto* address = static_cast<const char*>(g_object_get_data(G_OBJECT(media), addressKey));
    if (address && gst_rtsp_session_media_get_rtsp_state(sessionMedia) == GST_RTSP_STATE_PLAYING) {
        ++(*static_cast<std::map<std::string, int>*>(counts))[address];
    }
    return GST_RTSP_FILTER_KEEP;
}

void requireElements(std::initializer_list<const char*> names)
{
    for (const char* name : names) {
        g_autoptr(GstElementFactory) factory = gst_element_factory_find(name);
        if (!factory) {
            throw std::runtime_error(std::string("GStreamer does not know ") + name +
                                     ": install gstreamer1.0-plugins-base, -good and, for H.264, "
                                     "-ugly");
        }
    }
}

} // namespace

void zrn_view_factory_class_init(ViewFactoryClass* type)
{
    G_OBJECT_CLASS(type)->finalize = finalizeFactory;
    GST_RTSP_MEDIA_FACTORY_CLASS(type)->create_element = createElement;
    GST_RTSP_MEDIA_FACTORY_CLASS(type)->configure = configure;
    GST_RTSP_MEDIA_FACTORY_CLASS(type)->gen_key = keyOf;
}

void zrn_view_factory_init(ViewFactory* /*factory*/) {}

void zrn_view_media_class_init(ViewMediaClass* type)
{
    GST_RTSP_MEDIA_CLASS(type)->setup_rtpbin = setupRtpbin;
}

void zrn_view_media_init(ViewMedia* /*media*/) {}

std::string addressOf(const SharedCamera& camera, View view)
{
    return "/" + camera.serial() + "/" + nameOf(view);
}

RtspService::RtspService(const Access& access, WrongPasswords& wrongPasswords,
                         const Options& options)
    : m_server(gst_rtsp_server_new())
    , m_options(options)
    , m_wrongPasswords(wrongPasswords)
    , m_limit(options.mostClients, options.mostOfOneAddress)
    , m_isEncrypted(access.certificate() != nullptr)
{
    if (options.coding == Coding::H264) {
        requireElements({"videoconvert", "x264enc", "rtph264pay"});
    } else {
        requireElements({"videoconvert", "jpegenc", "rtpjpegpay"});
    }
    gst_rtsp_server_set_address(m_server, access.address().c_str());
    gst_rtsp_server_set_service(m_server, std::to_string(options.port).c_str());
    gst_rtsp_server_set_content_length_limit(m_server, longestRequest);
    g_autoptr(GstRTSPThreadPool) threads = gst_rtsp_server_get_thread_pool(m_server);
    // One each: who asks for a silent camera waits for its first frame, and nobody shall wait with
    // him.
    gst_rtsp_thread_pool_set_max_threads(threads, static_cast<gint>(options.mostClients));
    g_autoptr(GstRTSPSessionPool) sessions = gst_rtsp_server_get_session_pool(m_server);
    gst_rtsp_session_pool_set_max_sessions(sessions, options.mostClients * mostSessions);
    g_autoptr(GstRTSPAuth) auth = newAuth(access);
    gst_rtsp_server_set_auth(m_server, auth);
    g_signal_connect_swapped(
        m_server, "client-connected",
        G_CALLBACK(+[](RtspService* self, GstRTSPClient* client) { self->admit(client); }), this);
    m_listening = gst_rtsp_server_attach(m_server, nullptr);
    if (m_listening == 0) {
        g_object_unref(m_server);
        throw std::runtime_error(access.address() + ", port " + std::to_string(options.port) +
                                 " cannot be listened on");
    }
    m_slowTimer = g_timeout_add(
        slowCheckMilliseconds,
        [](gpointer self) -> gboolean {
            static_cast<RtspService*>(self)->dropSlowClients();
            return TRUE;
        },
        this);
    m_sessionTimer = g_timeout_add_seconds(
        sessionCheckSeconds,
        [](gpointer server) -> gboolean {
            g_autoptr(GstRTSPSessionPool) pool =
                gst_rtsp_server_get_session_pool(static_cast<GstRTSPServer*>(server));
            gst_rtsp_session_pool_cleanup(pool);
            return TRUE;
        },
        m_server);
}

RtspService::~RtspService()
{
    g_source_remove(m_slowTimer);
    g_source_remove(m_sessionTimer);
    g_source_remove(m_listening);
    std::vector<GstRTSPClient*> clients;
    {
        const std::lock_guard lock(m_clientsMutex);
        for (const auto& [client, state] : m_clients) {
            clients.push_back(reference(client));
            hangUp(state.socket);
        }
    }
    // Their threads end the streams.
    const Clock::time_point end = Clock::now() + longestEnd;
    while (isInUse() && Clock::now() < end) {
        std::this_thread::sleep_for(10ms);
    }
    for (GstRTSPClient* client : clients) {
        g_signal_handlers_disconnect_by_data(client, this);
        forget(client);
        g_object_unref(client);
    }
    for (GSocket* socket : m_tunnels) {
        g_object_unref(socket);
    }
    for (const auto& [address, factory] : m_factories) {
        g_object_unref(factory);
    }
    g_object_unref(m_server);
}

int RtspService::port() const
{
    return gst_rtsp_server_get_bound_port(m_server);
}

void RtspService::offer(const std::shared_ptr<SharedCamera>& camera)
{
    g_autoptr(GstRTSPMountPoints) mounts = gst_rtsp_server_get_mount_points(m_server);
    for (const View view : views) {
        const std::string address = addressOf(*camera, view);
        GstRTSPMediaFactory*& factory = m_factories[address];
        if (!factory) {
            factory = newFactory({camera, view, m_options.coding});
        }
        gst_rtsp_mount_points_add_factory(mounts, address.c_str(), reference(factory));
    }
}

void RtspService::withdraw(const SharedCamera& camera)
{
    g_autoptr(GstRTSPMountPoints) mounts = gst_rtsp_server_get_mount_points(m_server);
    for (const View view : views) {
        gst_rtsp_mount_points_remove_factory(mounts, addressOf(camera, view).c_str());
    }
}

bool RtspService::isInUse() const
{
    const std::lock_guard lock(m_clientsMutex);
    return !m_clients.empty() || m_leaving > 0;
}

std::size_t RtspService::clientCount() const
{
    const std::lock_guard lock(m_clientsMutex);
    return m_clients.size();
}

std::map<std::string, std::uint64_t> RtspService::connections() const
{
    std::map<std::string, std::uint64_t> bytes;
    const std::lock_guard lock(m_clientsMutex);
    for (const auto& [client, state] : m_clients) {
        bytes[state.name] = infoOf(state.socket).tcpi_bytes_acked;
    }
    return bytes;
}

std::map<std::string, int> RtspService::viewers() const
{
    std::map<std::string, int> counts;
    g_autoptr(GstRTSPSessionPool) pool = gst_rtsp_server_get_session_pool(m_server);
    gst_rtsp_session_pool_filter(
        pool,
        [](GstRTSPSessionPool*, GstRTSPSession* session, gpointer sums) {
            gst_rtsp_session_filter(session, countViewers, sums);
            return GST_RTSP_FILTER_KEEP;
        },
        &counts);
    return counts;
}

void RtspService::admit(GstRTSPClient* client)
{
    GSocket* socket = socketOf(client);
    if (!socket) {
        return; // has gone already
    }
    if (!m_limit.admit(socket)) {
        hangUp(socket);
        return;
    }
    const std::string name = peerOf(socket);
    note("%s: connected", name.c_str());
    // Neither a client that ended its stream nor one whose machine is gone keeps its place.
    g_object_set(client, "post-session-timeout", postSessionSeconds, nullptr);
    g_socket_set_keepalive(socket, TRUE);
    g_socket_set_option(socket, IPPROTO_TCP, TCP_NOTSENT_LOWAT, mostUnsentBytes, nullptr);
    g_signal_connect(client, "play-request", G_CALLBACK(beginPlaying), nullptr);
    g_signal_connect(client, "pre-pause-request", G_CALLBACK(endPlaying), nullptr);
    g_signal_connect(client, "pre-teardown-request", G_CALLBACK(endPlaying), nullptr);
    g_signal_connect(client, "send-message", G_CALLBACK(noteRefusal), &m_wrongPasswords);
    g_signal_connect_swapped(client, "send-message",
                             G_CALLBACK(+[](RtspService* self, GstRTSPContext*, GstRTSPMessage*,
                                            GstRTSPClient* answered) { self->greet(answered); }),
                             this);
    // Which may be answered late, when the camera's first frame is waited for.
    g_signal_connect_swapped(client, "pre-describe-request",
                             G_CALLBACK(+[](RtspService* self, GstRTSPContext* context) {
                                 self->greet(context->client);
                                 return GST_RTSP_STS_OK;
                             }),
                             this);
    g_signal_connect(client, "pre-setup-request", G_CALLBACK(limitSessions), nullptr);
    g_signal_connect_swapped(
        client, "new-session",
        G_CALLBACK(+[](RtspService* self, GstRTSPSession* session, GstRTSPClient* owner) {
            self->remember(owner, session);
        }),
        this);
    {
        const std::lock_guard lock(m_clientsMutex);
        m_clients[reference(client)] = {reference(socket), name, {}};
    }
    g_signal_connect_swapped(
        client, "closed",
        G_CALLBACK(+[](RtspService* self, GstRTSPClient* closed) { self->forget(closed); }), this);
}

void RtspService::forget(GstRTSPClient* client)
{
    std::unique_lock lock(m_clientsMutex);
    const auto known = m_clients.find(client);
    if (known == m_clients.end()) {
        return;
    }
    const Client state = std::move(known->second);
    m_clients.erase(known);
    ++m_leaving;
    // One of the two connections of a tunnel through HTTP becomes part of the other one, and keeps
    // its place.
    const bool isTunnel =
        gst_rtsp_connection_get_tunnelid(gst_rtsp_client_get_connection(client)) &&
        !g_socket_is_closed(state.socket) && infoOf(state.socket).tcpi_state == tcpEstablished;
    if (isTunnel) {
        m_tunnels.push_back(state.socket);
    }
    lock.unlock();
    // Nobody else can go on with them: their pictures went inside the connection.
    g_autoptr(GstRTSPSessionPool) pool = gst_rtsp_server_get_session_pool(m_server);
    for (const std::string& id : state.sessions) {
        if (g_autoptr(GstRTSPSession) session = gst_rtsp_session_pool_find(pool, id.c_str())) {
            gst_rtsp_session_pool_remove(pool, session);
        }
    }
    note("%s: %s", state.name.c_str(), isTunnel ? "is half of a tunnel" : "disconnected");
    if (!isTunnel) {
        m_limit.leave(state.socket);
        g_object_unref(state.socket);
    }
    g_object_unref(client);
    lock.lock();
    --m_leaving;
}

/// Called with m_clientsMutex held.
void RtspService::forgetTunnels()
{
    std::erase_if(m_tunnels, [this](GSocket* socket) {
        if (g_atomic_int_get(&G_OBJECT(socket)->ref_count) > 1) {
            return false; // the other connection has it
        }
        m_limit.leave(socket);
        g_object_unref(socket);
        return true;
    });
}

/// A client that has asked for something, or gets an answer.
void RtspService::greet(GstRTSPClient* client)
{
    const std::lock_guard lock(m_clientsMutex);
    const auto known = m_clients.find(client);
    if (known != m_clients.end()) {
        known->second.silentChecks = -1;
    }
}

void RtspService::remember(GstRTSPClient* client, GstRTSPSession* session)
{
    g_autoptr(GstRTSPSessionPool) pool = gst_rtsp_server_get_session_pool(m_server);
    const std::lock_guard lock(m_clientsMutex);
    const auto known = m_clients.find(client);
    if (known == m_clients.end()) {
        return;
    }
    std::vector<std::string>& sessions = known->second.sessions;
    std::erase_if(sessions, [pool](const std::string& id) {
        g_autoptr(GstRTSPSession) alive = gst_rtsp_session_pool_find(pool, id.c_str());
        return alive == nullptr;
    });
    sessions.emplace_back(gst_rtsp_session_get_sessionid(session));
}

void RtspService::dropSlowClients()
{
    const std::lock_guard lock(m_clientsMutex);
    forgetTunnels();
    for (auto& [client, state] : m_clients) {
        const tcp_info info = infoOf(state.socket);
        const bool isFull = isUnsent(state.socket) && info.tcpi_bytes_acked == state.acknowledged;
        state.acknowledged = info.tcpi_bytes_acked;
        state.fullChecks = isFull ? state.fullChecks + 1 : 0;
        const bool isGoing = info.tcpi_state != tcpEstablished;
        state.cutOffChecks = !isGoing && isCutOff(client) ? state.cutOffChecks + 1 : 0;
        constexpr int silentSeconds =
            mostSilentChecks * static_cast<int>(slowCheckMilliseconds) / 1000;
        constexpr int fullSeconds = mostFullChecks * static_cast<int>(slowCheckMilliseconds) / 1000;
        if (state.silentChecks >= 0 && ++state.silentChecks == mostSilentChecks) {
            drop(state, "it has asked for nothing for " + std::to_string(silentSeconds) + " s");
        } else if (state.fullChecks == mostFullChecks) {
            ++m_dropped;
            drop(state, "it has taken nothing for " + std::to_string(fullSeconds) + " s");
        } else if (state.cutOffChecks == mostCutOffChecks) {
            ++m_dropped;
            drop(state, "it reads more slowly than pictures come");
        }
    }
}

void RtspService::drop(const Client& client, const std::string& reason)
{
    note("%s: dropped, %s", client.name.c_str(), reason.c_str());
    hangUp(client.socket);
}

} // namespace zrnserve
