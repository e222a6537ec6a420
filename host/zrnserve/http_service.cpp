#include "zrnserve/http_service.h"

#include "zrnserve/note.h"

#include <cstring>

namespace zrnserve
{
namespace
{

std::string clientOf(SoupServerMessage* message)
{
    const char* address = soup_server_message_get_remote_host(message);
    return address ? address : "a client";
}

} // namespace

HttpService::HttpService(const Access& access, int port, Pages pages)
    : m_access(access)
    , m_pages(std::move(pages))
    , m_server(soup_server_new("tls-certificate", access.certificate(), "server-header", "zrnserve",
                               nullptr))
{
    // Bodies are of no use here: they are not kept, least of all before a password was asked for.
    g_signal_connect(m_server, "request-started",
                     G_CALLBACK(+[](SoupServer*, SoupServerMessage* message, gpointer) {
                         soup_message_body_set_accumulate(
                             soup_server_message_get_request_body(message), FALSE);
                     }),
                     nullptr);
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
                const bool isAdmitted =
                    static_cast<const HttpService*>(self)->m_access.admits(user, password);
                if (!isAdmitted) {
                    note("%s: refused, wrong user or password", clientOf(message).c_str());
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
}

HttpService::~HttpService()
{
    soup_server_disconnect(m_server);
    g_object_unref(m_server);
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
