#pragma once

#include <cstddef>
#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <sys/types.h>
#include <utility>

namespace zrnsim
{

/// Memory of a process that opened a device node. Kernel drivers copy from and to user space; this
/// does the same from outside, which needs the right to trace the process: any process that zrnsim
/// started has an ancestor in it.
class ClientMemory
{
public:
    explicit ClientMemory(pid_t pid)
        : m_pid(pid)
    {
    }

    /// Copies `target.size()` bytes from the client. False when the memory is not there.
    bool read(std::uintptr_t address, std::span<std::uint8_t> target) const;

    /// Bytes of this process and where they go in the client.
    struct Placement {
        std::uintptr_t address;
        std::span<const std::uint8_t> bytes;
    };

    /// Copies all that is placed, at most 1024 pieces, in one call to the kernel. False when the
    /// memory is not there.
    bool write(std::span<const Placement> placements) const;

    /// Copies two consecutive pieces to the client. False when the memory is not there.
    bool write(std::uintptr_t address, std::span<const std::uint8_t> first,
               std::span<const std::uint8_t> second = {}) const;

    template <typename Struct>
    bool readObject(std::uintptr_t address, Struct& target) const
    {
        return read(address, {reinterpret_cast<std::uint8_t*>(&target), sizeof(Struct)});
    }

    template <typename Struct>
    bool writeObject(std::uintptr_t address, const Struct& source) const
    {
        return write(address, {reinterpret_cast<const std::uint8_t*>(&source), sizeof(Struct)});
    }

private:
    pid_t m_pid;
};

/// Tells which process made each connection to a listening UNIX socket of this process.
class PeerTracker
{
public:
    explicit PeerTracker(std::string socketPath)
        : m_socketPath(std::move(socketPath))
    {
    }

    /// To be called once for each accepted connection: the process behind it, or -1.
    pid_t takeNewPeer();

private:
    std::string m_socketPath;
    std::set<ino_t> m_known;
};

} // namespace zrnsim
