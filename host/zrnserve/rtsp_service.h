#pragma once

#include "zrnserve/access.h"
#include "zrnserve/connections.h"
#include "zrnserve/shared_camera.h"

#include <atomic>
#include <gst/rtsp-server/rtsp-server.h>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace zrnserve
{

enum class Coding { H264, Jpeg };

/// Cameras by RTSP. Each view of a camera is one stream for all of its clients, inside their RTSP
/// connections.
///
/// Thread safety: thread-bound, to that of the default main context.
class RtspService
{
public:
    struct Options {
        int port = 8554; ///< 0: any
        Coding coding = Coding::H264;
        unsigned mostClients = 64;
        unsigned mostOfOneAddress = 32;
    };

    /// @throws std::runtime_error when the address cannot be listened on or nothing encodes
    RtspService(const Access& access, WrongPasswords& wrongPasswords, const Options& options);
    /// Ends the connections.
    ~RtspService();
    RtspService(const RtspService&) = delete;
    RtspService& operator=(const RtspService&) = delete;

    int port() const;
    bool isEncrypted() const { return m_isEncrypted; }

    /// Gives a camera its addresses; those that it had before stay the same streams.
    void offer(const std::shared_ptr<SharedCamera>& camera);
    /// Its addresses are not found any more. Who looks already goes on.
    void withdraw(const SharedCamera& camera);

    std::size_t clientCount() const;
    /// Bytes that each client has taken, by its address and port.
    std::map<std::string, std::uint64_t> connections() const;
    /// Dropped because they did not take their pictures in time.
    std::uint64_t droppedClients() const { return m_dropped; }
    /// How many clients look, by address.
    std::map<std::string, int> viewers() const;

private:
    struct Client {
        GSocket* socket; ///< a reference
        std::string name;
        std::vector<std::string> sessions; ///< their identifiers
        std::uint64_t acknowledged = 0;    ///< bytes, at the last check
        int fullChecks = 0;                ///< in a row
        int cutOffChecks = 0;              ///< in a row
        int silentChecks = 0;              ///< before its first request; -1: it has made one
    };

    void admit(GstRTSPClient* client);
    void forget(GstRTSPClient* client);
    /// Whether there are clients, or threads of theirs that forget them.
    [[nodiscard]] bool isInUse() const;
    void forgetTunnels();
    void greet(GstRTSPClient* client);
    void remember(GstRTSPClient* client, GstRTSPSession* session);
    void dropSlowClients();
    void drop(const Client& client, const std::string& reason);

    GstRTSPServer* const m_server;
    const Options m_options;
    WrongPasswords& m_wrongPasswords;
    ConnectionLimit m_limit;
    const bool m_isEncrypted;
    guint m_listening = 0;
    guint m_slowTimer = 0;
    guint m_sessionTimer = 0;
    std::map<std::string, GstRTSPMediaFactory*> m_factories; ///< by address; one reference each
    std::atomic<std::uint64_t> m_dropped = 0;

    mutable std::mutex m_clientsMutex;
    std::map<GstRTSPClient*, Client> m_clients; ///< one reference each
    std::vector<GSocket*> m_tunnels;            ///< those within others; references
    int m_leaving = 0;                          ///< clients whose threads forget them
};

/// The address of a view within a server.
std::string addressOf(const SharedCamera& camera, View view);

} // namespace zrnserve
