#include "watched_thread.h"

#include <fstream>
#include <string>
#include <unistd.h>

namespace
{

/// How a thread of this process stands in the kernel: its state, and how often it has waited so
/// far.
struct Standing {
    std::string state;
    std::string waits;

    friend bool operator==(const Standing&, const Standing&) = default;
};

Standing standingOf(int thread)
{
    std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
    Standing standing;
    for (std::string key; status >> key;) {
        if (key == "State:") {
            status >> standing.state;
        } else if (key == "voluntary_ctxt_switches:") {
            status >> standing.waits;
        }
    }
    return standing;
}

} // namespace

WatchedThread::WatchedThread(const std::function<void()>& body)
    : m_thread([this, body] {
        m_id = gettid();
        body();
        m_hasEnded = true;
    })
{
}

WatchedThread::~WatchedThread()
{
    join();
}

bool WatchedThread::waitsForOthers() const
{
    // A lock that is held for a moment puts a thread to sleep, too.
    constexpr int looks = 20;
    Standing before;
    for (int same = 0; same < looks;) {
        if (m_hasEnded) {
            return false;
        }
        const Standing now = m_id == 0 ? Standing{} : standingOf(m_id);
        same = now.state == "S" && now == before ? same + 1 : 0;
        before = now;
        std::this_thread::yield();
    }
    return true;
}

void WatchedThread::join()
{
    if (m_thread.joinable()) {
        m_thread.join();
    }
}
