#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

namespace zrnhost
{

/// Turns Ctrl-C, SIGTERM and a terminal that closes into an orderly end. The signals are blocked
/// and taken by a thread of this object, so that a stop action may do what a signal handler must
/// not. A second signal ends the process at once, should the orderly end hang; one that follows
/// within a second is taken for the same request, which timeout(1), for one, sends to the process
/// and to its group.
///
/// To be made before any other thread starts, since threads inherit the blocked signals. One object
/// in a process.
///
/// Thread safety: thread-safe.
class Interrupt
{
public:
    /// What a program ends with that a signal has ended.
    static constexpr int exitStatus = 130;

    Interrupt();
    ~Interrupt();
    Interrupt(const Interrupt&) = delete;
    Interrupt& operator=(const Interrupt&) = delete;

    [[nodiscard]] bool requested() const { return m_requested.load(); }

    /// Sets what a signal does for @p owner beside raising the flag; runs at once if it has come
    /// already. An empty function removes the action, waiting for one that is running.
    void onRequest(const void* owner, std::function<void()> action);

private:
    void watch();

    std::atomic<bool> m_requested{false};
    std::mutex m_actionMutex;
    std::map<const void*, std::function<void()>> m_actions;
    int m_signals = -1; // signalfd
    int m_end = -1;     // eventfd
    std::thread m_thread;
};

/// What a signal does, for as long as this object lives.
class InterruptAction
{
public:
    InterruptAction(Interrupt& interrupt, std::function<void()> action)
        : m_interrupt(interrupt)
    {
        m_interrupt.onRequest(this, std::move(action));
    }
    ~InterruptAction() { m_interrupt.onRequest(this, {}); }
    InterruptAction(const InterruptAction&) = delete;
    InterruptAction& operator=(const InterruptAction&) = delete;

private:
    Interrupt& m_interrupt;
};

} // namespace zrnhost
