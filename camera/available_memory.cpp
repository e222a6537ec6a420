#include "available_memory.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <fstream>
#include <optional>
#include <sstream>
#include <string_view>
#include <sys/resource.h>

namespace
{

constexpr std::uint64_t bytesPerKilobyte = 1024;

std::atomic<std::uint64_t> unwrittenTotal = 0;

std::optional<std::uint64_t> numberAt(std::string_view text)
{
    const std::size_t begin = std::min(text.find_first_not_of(" \t"), text.size());
    std::uint64_t number = 0;
    const auto [end, error] =
        std::from_chars(text.data() + begin, text.data() + text.size(), number);
    return error == std::errc() ? std::optional(number) : std::nullopt;
}

/// The number behind a name that begins a line.
std::optional<std::uint64_t> numberOf(std::string_view text, std::string_view name)
{
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        if (line.starts_with(name)) {
            return numberAt(line.substr(name.size()));
        }
        text.remove_prefix(std::min(line.size() + 1, text.size()));
    }
    return std::nullopt;
}

/// Whether a list with commas has a name.
bool names(std::string_view list, std::string_view name)
{
    while (!list.empty()) {
        const std::string_view entry = list.substr(0, list.find(','));
        if (entry == name) {
            return true;
        }
        list.remove_prefix(std::min(entry.size() + 1, list.size()));
    }
    return false;
}

/// What is left of a limit. Beyond it nothing is.
std::uint64_t leftOf(std::uint64_t limit, std::uint64_t used)
{
    return limit - std::min(limit, used);
}

std::uint64_t kilobytesOf(const std::string& text, std::string_view name, std::uint64_t otherwise)
{
    const auto kilobytes = numberOf(text, name);
    return kilobytes ? *kilobytes * bytesPerKilobyte : otherwise;
}

std::uint64_t leftInGroup(const GroupReport& group)
{
    const auto limit = numberAt(group.limit); // none where it is the word "max"
    const auto usage = numberAt(group.usage);
    if (!limit || !usage) {
        return unlimitedMemory;
    }
    std::uint64_t cache = 0;
    // Version 2 and version 1. In version 1, the names without "total_" leave out the groups below.
    for (const std::string_view name : {"inactive_file ", "active_file ", "slab_reclaimable "}) {
        cache += numberOf(group.statistics, "total_" + std::string(name))
                     .value_or(numberOf(group.statistics, name).value_or(0));
    }
    return leftOf(*limit, leftOf(*usage, cache));
}

std::string contentOf(const std::string& path)
{
    const std::ifstream file(path);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

GroupReport reportOf(const MemoryGroup& group)
{
    if (group.isUnified) {
        const std::string folder = "/sys/fs/cgroup" + group.path;
        return {contentOf(folder + "/memory.max"), contentOf(folder + "/memory.current"),
                contentOf(folder + "/memory.stat")};
    }
    const std::string folder = "/sys/fs/cgroup/memory" + group.path;
    return {contentOf(folder + "/memory.limit_in_bytes"),
            contentOf(folder + "/memory.usage_in_bytes"), contentOf(folder + "/memory.stat")};
}

std::uint64_t resourceLimit(decltype(RLIMIT_AS) resource)
{
    rlimit limit = {};
    return getrlimit(resource, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY ? limit.rlim_cur
                                                                               : unlimitedMemory;
}

} // namespace

std::vector<MemoryGroup> memoryGroups(const std::string& text)
{
    std::vector<MemoryGroup> groups;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        // "0::/path" for version 2, "4:memory,cpu:/path" for version 1.
        const std::size_t first = line.find(':');
        const std::size_t second = line.find(':', first + 1);
        if (first == std::string::npos || second == std::string::npos) {
            continue;
        }
        const std::string_view controllers =
            std::string_view(line).substr(first + 1, second - first - 1);
        const bool isUnified = controllers.empty();
        if (!isUnified && !names(controllers, "memory")) {
            continue;
        }
        // A container may see its own group as the root while this path is the machine's; so every
        // group on the way there counts, as far as there are files for it.
        for (std::string path = line.substr(second + 1);;) {
            path.erase(path.find_last_not_of('/') + 1);
            groups.push_back({isUnified, path});
            if (path.empty()) {
                break;
            }
            path.erase(path.rfind('/') == std::string::npos ? 0 : path.rfind('/'));
        }
    }
    return groups;
}

std::uint64_t memoryLeft(const MemoryReport& report, std::uint64_t promised)
{
    std::uint64_t left = kilobytesOf(report.machine, "MemAvailable:", unlimitedMemory);
    for (const GroupReport& group : report.groups) {
        left = std::min(left, leftInGroup(group));
    }
    // The process's own limits count what is allocated, written or not.
    left = left == unlimitedMemory ? left : leftOf(left, promised);
    if (report.addressSpace != unlimitedMemory) {
        left =
            std::min(left, leftOf(report.addressSpace, kilobytesOf(report.process, "VmSize:", 0)));
    }
    if (report.data != unlimitedMemory) {
        left = std::min(left, leftOf(report.data, kilobytesOf(report.process, "VmData:", 0)));
    }
    return left;
}

std::uint64_t availableMemory(std::uint64_t promised)
{
    MemoryReport report;
    report.machine = contentOf("/proc/meminfo");
    report.process = contentOf("/proc/self/status");
    for (const MemoryGroup& group : memoryGroups(contentOf("/proc/self/cgroup"))) {
        report.groups.push_back(reportOf(group));
    }
    report.addressSpace = resourceLimit(RLIMIT_AS);
    report.data = resourceLimit(RLIMIT_DATA);
    return memoryLeft(report, promised);
}

std::uint64_t UnwrittenMemory::total()
{
    return unwrittenTotal.load();
}

bool UnwrittenMemory::tryAdd(std::uint64_t bytes, std::uint64_t seenTotal)
{
    if (!unwrittenTotal.compare_exchange_strong(seenTotal, seenTotal + bytes)) {
        return false;
    }
    m_bytes += bytes;
    return true;
}

void UnwrittenMemory::takeFrom(UnwrittenMemory& other, std::uint64_t bytes)
{
    other.m_bytes -= bytes;
    m_bytes += bytes;
}

void UnwrittenMemory::reduceTo(std::uint64_t bytes)
{
    if (m_bytes > bytes) {
        unwrittenTotal.fetch_sub(m_bytes - bytes);
        m_bytes = bytes;
    }
}
