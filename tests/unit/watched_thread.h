#pragma once

#include <atomic>
#include <functional>
#include <thread>

/// A thread of which a test sees whether it waits.
class WatchedThread
{
public:
    explicit WatchedThread(const std::function<void()>& body);
    /// Waits for the thread's end.
    ~WatchedThread();
    WatchedThread(const WatchedThread&) = delete;
    WatchedThread& operator=(const WatchedThread&) = delete;

    /// Waits until the thread sleeps in the kernel and nothing wakes it, or has ended.
    /// @return whether it sleeps.
    [[nodiscard]] bool waitsForOthers() const;
    void join();

private:
    std::atomic<int> m_id = 0; ///< in the kernel; 0 until it has begun
    std::atomic<bool> m_hasEnded = false;
    std::thread m_thread;
};
