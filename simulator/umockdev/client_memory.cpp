#include "umockdev/client_memory.h"

#include <array>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace zrnsim
{

namespace
{

void* pointer(std::uintptr_t address)
{
    return reinterpret_cast<void*>(address);
}

/// Path that a connected socket was accepted on; empty for anything else.
std::string localPath(int fd)
{
    sockaddr_un address{};
    socklen_t length = sizeof address;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0 ||
        address.sun_family != AF_UNIX) {
        return {};
    }
    return {address.sun_path, strnlen(address.sun_path, sizeof address.sun_path)};
}

} // namespace

bool ClientMemory::read(std::uintptr_t address, std::span<std::uint8_t> target) const
{
    const iovec local{target.data(), target.size()};
    const iovec remote{pointer(address), target.size()};
    return process_vm_readv(m_pid, &local, 1, &remote, 1, 0) == static_cast<ssize_t>(target.size());
}

bool ClientMemory::write(std::span<const Placement> placements) const
{
    std::vector<iovec> local;
    std::vector<iovec> remote;
    local.reserve(placements.size());
    remote.reserve(placements.size());
    std::size_t total = 0;
    std::uintptr_t end = 0;
    for (const auto& [address, bytes] : placements) {
        local.push_back({const_cast<std::uint8_t*>(bytes.data()), bytes.size()});
        // The kernel looks the client's pages up for each piece anew.
        if (!remote.empty() && address == end) {
            remote.back().iov_len += bytes.size();
        } else {
            remote.push_back({pointer(address), bytes.size()});
        }
        end = address + bytes.size();
        total += bytes.size();
    }
    return process_vm_writev(m_pid, local.data(), local.size(), remote.data(), remote.size(), 0) ==
           static_cast<ssize_t>(total);
}

bool ClientMemory::write(std::uintptr_t address, std::span<const std::uint8_t> first,
                         std::span<const std::uint8_t> second) const
{
    return write(std::array{Placement{address, first}, Placement{address + first.size(), second}});
}

pid_t PeerTracker::takeNewPeer()
{
    std::set<ino_t> present;
    pid_t newPeer = -1;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const std::string name = entry.path().filename();
        int fd = -1;
        std::from_chars(name.data(), name.data() + name.size(), fd);
        ucred peer{};
        socklen_t length = sizeof peer;
        struct stat status {
        };
        const bool isConnection = localPath(fd) == m_socketPath && fstat(fd, &status) == 0 &&
                                  getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 &&
                                  peer.pid != getpid(); // which is the listener
        if (!isConnection) {
            continue;
        }
        present.insert(status.st_ino);
        if (!m_known.contains(status.st_ino)) {
            newPeer = peer.pid;
        }
    }
    m_known = std::move(present);
    return newPeer;
}

} // namespace zrnsim
