#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// How much memory something may grow into, in bytes.
using MemoryLimit = std::uint64_t (*)();

/// How much memory this process may still use: what the machine has left, what its control groups
/// leave it, and what its own limits do. Caches that the kernel would give up count as free.
std::uint64_t availableMemory();

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

/// What these texts leave a process. What they do not tell does not limit.
std::uint64_t memoryLeft(const MemoryReport& report);
