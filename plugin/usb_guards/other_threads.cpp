#include "other_threads.h"

#include <charconv>
#include <ctime>
#include <dirent.h>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <unistd.h>

namespace usbguards
{
namespace
{

using std::chrono::nanoseconds;

constexpr auto threadsFolder = "/proc/self/task";

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

/// Processor time that a thread has used, to the moment also while it runs.
std::optional<nanoseconds> processorTime(pid_t thread)
{
    // As pthread_getcpuclockid() makes it, which wants to know more than a number.
    constexpr unsigned threadsOwn = 6;
    const auto clock = static_cast<clockid_t>(~static_cast<unsigned>(thread) << 3U | threadsOwn);
    timespec time{};
    return clock_gettime(clock, &time) == 0
               ? std::optional(std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec))
               : std::nullopt;
}

/// Whether a thread sleeps in a call of the kernel, or has ended. One that waits for a page to be
/// read does not.
bool isElsewhere(pid_t thread)
{
    std::ifstream file(
        std::string(threadsFolder).append("/").append(std::to_string(thread)).append("/stat"));
    std::string text;
    std::getline(file, text);
    // "123 (name) S ..."
    const std::size_t end = text.rfind(')');
    return end == std::string::npos || text.find_first_of("SZX", end) == end + 2;
}

/// The other threads that may be anywhere, and the processor time that each has used.
std::map<pid_t, std::optional<nanoseconds>> standingThreads()
{
    std::map<pid_t, std::optional<nanoseconds>> threads;
    const std::unique_ptr<DIR, CloseFolder> folder(opendir(threadsFolder));
    while (const dirent* entry = folder ? readdir(folder.get()) : nullptr) {
        const std::string_view name = entry->d_name;
        pid_t thread = 0;
        std::from_chars(name.data(), name.data() + name.size(), thread);
        if (thread > 0 && thread != gettid() && !isElsewhere(thread)) {
            threads.emplace(thread, processorTime(thread));
        }
    }
    return threads;
}

} // namespace

bool waitUntilOthersHaveMoved(std::chrono::milliseconds limit)
{
    constexpr std::chrono::milliseconds enough(1);
    constexpr std::chrono::milliseconds pause(1);
    const auto end = std::chrono::steady_clock::now() + limit;
    for (auto threads = standingThreads(); !threads.empty();) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(pause);
        std::erase_if(threads, [enough](const auto& thread) {
            const auto& [id, before] = thread;
            const auto now = processorTime(id);
            return isElsewhere(id) || (before && now && *now - *before >= enough);
        });
    }
    return true;
}

} // namespace usbguards
