#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace soak
{

/// Ends the pauses of all threads of a round at once. Thread-safe.
class Pauses
{
public:
    /// @return whether the round goes on.
    bool pause(std::chrono::milliseconds time)
    {
        std::unique_lock locker(m_mutex);
        return !m_ended.wait_for(locker, time, [this] { return m_hasEnded; });
    }
    void end()
    {
        {
            const std::lock_guard locker(m_mutex);
            m_hasEnded = true;
        }
        m_ended.notify_all();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_ended;
    bool m_hasEnded = false;
};

} // namespace soak
