#pragma once

#include <gio/gio.h>
#include <map>
#include <mutex>
#include <string>

namespace zrnserve
{

/// Address and port of the other side.
std::string peerOf(GSocket* socket);

/// Ends a connection by its socket alone: who serves it sees that and ends it, as when the client
/// goes by itself.
void hangUp(GSocket* socket);

/// How many connections there may be at once: of all clients together, and from one address, so
/// that no client takes the places of all others.
///
/// Thread safety: thread-safe.
class ConnectionLimit
{
public:
    ConnectionLimit(unsigned most, unsigned mostOfOne)
        : m_most(most)
        , m_mostOfOne(mostOfOne)
    {
    }

    /// Takes a place. @return false when there is none; the log says who was refused and why
    bool admit(GSocket* socket);
    void leave(GSocket* socket);

private:
    const unsigned m_most;
    const unsigned m_mostOfOne;
    std::mutex m_mutex;
    std::map<GSocket*, std::string> m_addresses; ///< of those who have a place
};

} // namespace zrnserve
