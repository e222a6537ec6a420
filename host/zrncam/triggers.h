#pragma once

#include <functional>
#include <thread>

/// What sets something off in a running command: each line on standard input, and each SIGUSR1.
///
/// Thread safety: the action runs on a thread of this object.
class Triggers
{
public:
    /// Keeps SIGUSR1 for such an object, or from ending the process where there is none. To be
    /// called before any other thread starts, since threads inherit the blocked signals.
    static void blockSignal();

    explicit Triggers(std::function<void()> action);
    ~Triggers();
    Triggers(const Triggers&) = delete;
    Triggers& operator=(const Triggers&) = delete;

private:
    void watch() const;
    bool readLines() const;

    const std::function<void()> m_action;
    int m_signals = -1; // signalfd
    int m_end = -1;     // eventfd
    std::thread m_thread;
};
