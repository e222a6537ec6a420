#include "zrnserve/connections.h"

#include "zrnserve/note.h"

#include <algorithm>

namespace zrnserve
{
namespace
{

constexpr unsigned mostWrongPasswords = 8;
constexpr std::chrono::minutes wrongPasswordsKept(1);

/// Addresses that are remembered at once; whoever has more to try from is not stopped by memory.
constexpr std::size_t mostAddresses = 4096;

/// Without the port.
std::string addressOf(GSocket* socket)
{
    g_autoptr(GSocketAddress) peer = g_socket_get_remote_address(socket, nullptr);
    if (!peer || !G_IS_INET_SOCKET_ADDRESS(peer)) {
        return "";
    }
    g_autofree char* text =
        g_inet_address_to_string(g_inet_socket_address_get_address(G_INET_SOCKET_ADDRESS(peer)));
    return text;
}

} // namespace

std::string peerOf(GSocket* socket)
{
    g_autoptr(GSocketAddress) peer =
        socket ? g_socket_get_remote_address(socket, nullptr) : nullptr;
    if (!peer) {
        return "a client";
    }
    g_autofree char* name = g_socket_connectable_to_string(G_SOCKET_CONNECTABLE(peer));
    return name;
}

void hangUp(GSocket* socket)
{
    g_socket_shutdown(socket, TRUE, TRUE, nullptr);
}

void WrongPasswords::add(GSocket* socket)
{
    const std::string peer = peerOf(socket);
    note("%s: refused, wrong user or password", peer.c_str());
    if (!socket) {
        return;
    }
    std::unique_lock lock(m_mutex);
    forgetOld();
    const std::string address = addressOf(socket);
    if (m_counts.size() == mostAddresses && !m_counts.count(address)) {
        return;
    }
    Count& count = m_counts.try_emplace(address, Count{Clock::now()}).first->second;
    const bool isTooMuch = ++count.passwords >= mostWrongPasswords;
    lock.unlock();
    if (isTooMuch) {
        note("%s: dropped, its address gave %u wrong passwords within a minute", peer.c_str(),
             mostWrongPasswords);
        hangUp(socket);
    }
}

void WrongPasswords::forgetOld()
{
    const Clock::time_point oldest = Clock::now() - wrongPasswordsKept;
    std::erase_if(m_counts, [oldest](const auto& known) { return known.second.first < oldest; });
}

bool ConnectionLimit::admit(GSocket* socket)
{
    const std::string address = addressOf(socket);
    std::unique_lock lock(m_mutex);
    if (m_addresses.size() >= m_most) {
        lock.unlock();
        note("%s: refused, there are %u clients already", peerOf(socket).c_str(), m_most);
        return false;
    }
    const auto isOfAddress = [&address](const auto& known) { return known.second == address; };
    if (std::count_if(m_addresses.begin(), m_addresses.end(), isOfAddress) >=
        static_cast<std::ptrdiff_t>(m_mostOfOne)) {
        lock.unlock();
        note("%s: refused, there are %u clients of its address already", peerOf(socket).c_str(),
             m_mostOfOne);
        return false;
    }
    m_addresses[socket] = address;
    return true;
}

void ConnectionLimit::leave(GSocket* socket)
{
    const std::lock_guard lock(m_mutex);
    m_addresses.erase(socket);
}

} // namespace zrnserve
