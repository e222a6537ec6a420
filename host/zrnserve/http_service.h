#pragma once

#include "zrnserve/access.h"
#include "zrnserve/connections.h"

#include <chrono>
#include <functional>
#include <libsoup/soup.h>
#include <map>
#include <string>

namespace zrnserve
{

/// Two pages: what is there, and figures for Prometheus.
///
/// Thread safety: thread-bound, to that of the default main context.
class HttpService
{
public:
    struct Pages {
        /// JSON; addresses begin with the host's name as the client wrote it.
        std::function<std::string(const std::string& host)> cameras;
        std::function<std::string()> metrics;
    };

    /// @param port 0: any
    /// @throws std::runtime_error when the address cannot be listened on
    HttpService(const Access& access, WrongPasswords& wrongPasswords, int port, Pages pages);
    ~HttpService();
    HttpService(const HttpService&) = delete;
    HttpService& operator=(const HttpService&) = delete;

    int port() const;

private:
    using Clock = std::chrono::steady_clock;

    struct Client {
        Clock::time_point since; ///< its last request, or that it came
        bool hasWhatItAskedFor = false;
    };

    void admit(GSocket* socket);
    void tellAnswered(GSocket* socket, bool isAnswered);
    void dropIdleClients();
    void answer(SoupServerMessage* message, const char* path) const;
    void forgetClosed();

    const Access& m_access;
    WrongPasswords& m_wrongPasswords;
    const Pages m_pages;
    ConnectionLimit m_limit;
    std::map<GSocket*, Client> m_clients; ///< references
    guint m_idleTimer = 0;
    SoupServer* const m_server;
};

} // namespace zrnserve
