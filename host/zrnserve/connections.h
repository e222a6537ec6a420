#pragma once

#include <chrono>
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

/// Who gave wrong passwords. Passwords are found by trying many: whoever gives another one after
/// several of its address within a minute is hung up on. An address is not shut out, as a client
/// may try a mistyped one as often.
///
/// Thread safety: thread-safe.
class WrongPasswords
{
public:
    /// A client gave one. The log tells who, and whether that was the last one.
    void add(GSocket* socket);

private:
    using Clock = std::chrono::steady_clock;

    struct Count {
        Clock::time_point first;
        unsigned passwords = 0;
    };

    void forgetOld();

    std::mutex m_mutex;
    std::map<std::string, Count> m_counts; ///< by address
};

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
