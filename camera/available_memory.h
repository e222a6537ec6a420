#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// How much memory something may grow into, in bytes, beside what is promised.
using MemoryLimit = std::uint64_t (*)(std::uint64_t promised);

/// How much memory this process may still use: what the machine has left, what its control groups
/// leave it, and what its own limits do. Caches that the kernel would give up count as free.
/// @param promised what has been allocated and not been written: the kernel takes it from the
/// machine and the groups only then.
std::uint64_t availableMemory(std::uint64_t promised);

/// Memory that was allocated and has not been written: the kernel still counts it as available.
/// Objects are not thread-safe; their sum is.
class UnwrittenMemory
{
public:
    UnwrittenMemory() = default;
    ~UnwrittenMemory() { reduceTo(0); }
    UnwrittenMemory(const UnwrittenMemory&) = delete;
    UnwrittenMemory& operator=(const UnwrittenMemory&) = delete;

    /// That of the whole process.
    static std::uint64_t total();

    /// Adds to it as long as the process's total is what the caller has seen.
    bool tryAdd(std::uint64_t bytes, std::uint64_t seenTotal);
    /// Moves bytes, of which the other has as many.
    void takeFrom(UnwrittenMemory& other, std::uint64_t bytes);
    /// Leaves no more than so much.
    void reduceTo(std::uint64_t bytes);

private:
    std::uint64_t m_bytes = 0;
};

// What stands behind it, without a look at this machine.

inline constexpr std::uint64_t unlimitedMemory = UINT64_MAX;

/// Where the kernel tells of a control group's memory, below the folder of the control groups.
struct MemoryGroup {
    bool isUnified = false; ///< version 2
    std::string path;       ///< with a slash in front, empty for the root

    friend bool operator==(const MemoryGroup&, const MemoryGroup&) = default;
};

/// The groups that limit the memory of a process, with all those that these are part of.
/// @param text /proc/self/cgroup
std::vector<MemoryGroup> memoryGroups(const std::string& text);

/// The files of one group, or of none: limit, usage, and statistics in which the cache stands.
struct GroupReport {
    std::string limit;
    std::string usage;
    std::string statistics;
};

struct MemoryReport {
    std::string machine; ///< /proc/meminfo
    std::string process; ///< /proc/self/status
    std::vector<GroupReport> groups;
    std::uint64_t addressSpace = unlimitedMemory; ///< RLIMIT_AS
    std::uint64_t data = unlimitedMemory;         ///< RLIMIT_DATA
};

/// What these texts leave a process. What they do not tell does not limit. @see availableMemory
std::uint64_t memoryLeft(const MemoryReport& report, std::uint64_t promised = 0);
