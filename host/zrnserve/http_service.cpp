#include "zrnserve/http_service.h"

#include "zrnserve/note.h"

#include <cstring>

namespace zrnserve
{
namespace
{

constexpr unsigned mostConnections = 64;
constexpr unsigned mostOfOneAddress = 32;

/// To ask for something, to take the answer and to ask again.
constexpr std::chrono::seconds longestSilence(15);
constexpr std::chrono::seconds idleCheck(5);

} // namespace

HttpService::HttpService(const Access& access, WrongPasswords& wrongPasswords, int port,
                         Pages pages)
    : m_access(access)
    , m_wrongPasswords(wrongPasswords)
    , m_pages(std::move(pages))
    , m_limit(mostConnections, mostOfOneAddress)
    , m_server(soup_server_new("tls-certificate", access.certificate(), "server-header", "zrnserve",
                               nullptr))
{
    // Told of a connection as well, before anything was read. Bodies are of no use here: they are
    // not kept, least of all before a password was asked for.
    g_signal_connect(m_server, "request-started",
                     G_CALLBACK(+[](SoupServer*, SoupServerMessage* message, gpointer self) {
                         soup_message_body_set_accumulate(
                             soup_server_message_get_request_body(message), FALSE);
                         if (GSocket* socket = soup_server_message_get_socket(message)) {
                             static_cast<HttpService*>(self)->admit(socket);
                         }
                     }),
                     this);
    g_signal_connect_swapped(m_server, "request-read",
                             G_CALLBACK(+[](HttpService* self, SoupServerMessage* message) {
                                 self->tellAnswered(soup_server_message_get_socket(message), false);
                             }),
                             this);
    g_signal_connect_swapped(m_server, "request-finished",
                             G_CALLBACK(+[](HttpService* self, SoupServerMessage* message) {
                                 self->tellAnswered(soup_server_message_get_socket(message), true);
                             }),
                             this);
    soup_server_add_handler(
        m_server, nullptr,
        [](SoupServer*, SoupServerMessage* message, const char* path, GHashTable*, gpointer self) {
            static_cast<const HttpService*>(self)->answer(message, path);
        },
        this, nullptr);
    if (!access.passwords().empty()) {
        SoupAuthDomain* domain = soup_auth_domain_basic_new("realm", "zrnserve", nullptr);
        soup_auth_domain_add_path(domain, "/");
        soup_auth_domain_basic_set_auth_callback(
            domain,
            [](SoupAuthDomain*, SoupServerMessage* message, const char* user, const char* password,
               gpointer self) -> gboolean {
                const auto& service = *static_cast<const HttpService*>(self);
                const bool isAdmitted = service.m_access.admits(user, password);
                if (!isAdmitted) {
                    service.m_wrongPasswords.add(soup_server_message_get_socket(message));
                }
                return isAdmitted;
            },
            this, nullptr);
        soup_server_add_auth_domain(m_server, domain);
        g_object_unref(domain);
    }
    g_autoptr(GSocketAddress) address =
        g_inet_socket_address_new_from_string(access.address().c_str(), static_cast<guint>(port));
    g_autoptr(GError) error = nullptr;
    if (!soup_server_listen(
            m_server, address,
            access.certificate() ? SOUP_SERVER_LISTEN_HTTPS : SoupServerListenOptions{}, &error)) {
        g_object_unref(m_server);
        throw std::runtime_error(access.address() + ", port " + std::to_string(port) +
                                 " cannot be listened on: " + error->message);
    }
    m_idleTimer = g_timeout_add_seconds(
        static_cast<guint>(idleCheck.count()),
        [](gpointer self) -> gboolean {
            static_cast<HttpService*>(self)->dropIdleClients();
            return TRUE;
        },
        this);
}

HttpService::~HttpService()
{
    g_source_remove(m_idleTimer);
    soup_server_disconnect(m_server);
    g_object_unref(m_server);
    for (const auto& [socket, client] : m_clients) {
        g_object_unref(socket);
    }
}

void HttpService::admit(GSocket* socket)
{
    const auto known = m_clients.find(socket);
    if (known != m_clients.end()) {
        known->second.since = Clock::now();
        return;
    }
    forgetClosed();
    if (m_limit.admit(socket)) {
        m_clients[G_SOCKET(g_object_ref(socket))] = {Clock::now()};
    } else {
        g_socket_close(socket, nullptr); // before anything waits for it
    }
}

void HttpService::tellAnswered(GSocket* socket, bool isAnswered)
{
    const auto known = m_clients.find(socket);
    if (known != m_clients.end()) {
        known->second.hasWhatItAskedFor = isAnswered;
    }
}

void HttpService::forgetClosed()
{
    for (auto known = m_clients.begin(); known != m_clients.end();) {
        GSocket* socket = known->first;
        if (!g_socket_is_closed(socket)) {
            ++known;
            continue;
        }
        known = m_clients.erase(known);
        m_limit.leave(socket);
        g_object_unref(socket);
    }
}

/// Those that ask for nothing, or never come to an end of it, and those that do not read. Who has
/// his answer and keeps the connection for the next one, as those do who ask again and again, has
/// done nothing that the log were to tell.
void HttpService::dropIdleClients()
{
    forgetClosed();
    const Clock::time_point now = Clock::now();
    for (const auto& [socket, client] : m_clients) {
        if (client.since + longestSilence + idleCheck < now) {
            g_socket_close(socket, nullptr); // libsoup keeps some whose encryption has failed
        } else if (client.since + longestSilence < now) {
            if (g_socket_is_connected(socket) && !client.hasWhatItAskedFor) {
                note("%s: dropped, it has asked for nothing for %d s", peerOf(socket).c_str(),
                     static_cast<int>(longestSilence.count()));
            }
            hangUp(socket);
        }
    }
}

int HttpService::port() const
{
    GSList* addresses = soup_server_get_uris(m_server);
    const int port = addresses ? g_uri_get_port(static_cast<GUri*>(addresses->data)) : 0;
    g_slist_free_full(addresses, [](gpointer uri) { g_uri_unref(static_cast<GUri*>(uri)); });
    return port;
}

void HttpService::answer(SoupServerMessage* message, const char* path) const
{
    const char* method = soup_server_message_get_method(message);
    if (std::strcmp(method, SOUP_METHOD_GET) != 0 && std::strcmp(method, SOUP_METHOD_HEAD) != 0) {
        soup_server_message_set_status(message, SOUP_STATUS_METHOD_NOT_ALLOWED, nullptr);
        return;
    }
    const bool isMetrics = std::strcmp(path, "/metrics") == 0;
    if (!isMetrics && std::strcmp(path, "/") != 0) {
        soup_server_message_set_status(message, SOUP_STATUS_NOT_FOUND, nullptr);
        return;
    }
    const char* host = g_uri_get_host(soup_server_message_get_uri(message));
    const std::string text = isMetrics ? m_pages.metrics() : m_pages.cameras(host ? host : "");
    soup_server_message_set_status(message, SOUP_STATUS_OK, nullptr);
    soup_server_message_set_response(message,
                                     isMetrics ? "text/plain; version=0.0.4" : "application/json",
                                     SOUP_MEMORY_COPY, text.data(), text.size());
}

} // namespace zrnserve
