#pragma once

#include <chrono>
#include <future>
#include <pybind11/pybind11.h>
#include <stop_token>
#include <thread>
#include <unistd.h>

namespace zrnpy
{

/// Between two looks for Ctrl-C.
inline constexpr std::chrono::milliseconds waitSlice{40};

/// Runs the handlers of signals that came meanwhile, and throws what they raise.
inline void handleSignals()
{
    if (PyErr_CheckSignals() != 0) {
        throw pybind11::error_already_set();
    }
}

/// Lets other threads have the interpreter. A thread that wants it back when it is gone stays here
/// for good: Python ends such a thread by unwinding it, which no destructor of C++ lets through.
class WithoutGil
{
public:
    WithoutGil()
        : m_thread(PyEval_SaveThread())
    {
    }
    ~WithoutGil()
    {
        try {
            PyEval_RestoreThread(m_thread);
        } catch (...) {
            for (;;) {
                ::pause();
            }
        }
    }
    WithoutGil(const WithoutGil&) = delete;
    WithoutGil& operator=(const WithoutGil&) = delete;

private:
    PyThreadState* const m_thread;
};

/// Runs @p work without the GIL.
template <typename Work>
auto unlocked(const Work& work)
{
    const WithoutGil without;
    return work();
}

/// Keeps a thread whose work nobody waits for, until the end of the process.
void leaveBehind(std::thread thread);

/// Waits for what was left behind: the process must not end while it is in the driver.
void awaitLeftBehind();

/// Does @p work on a thread of its own, so that Ctrl-C can end the wait; the work is then asked to
/// stop, and its result thrown away. It must own what it uses.
template <typename Work>
auto interruptible(Work work, std::stop_source stop = {})
{
    std::packaged_task<decltype(work())()> task(std::move(work));
    auto result = task.get_future();
    std::thread thread(std::move(task));
    try {
        while (unlocked([&result] { return result.wait_for(waitSlice); }) !=
               std::future_status::ready) {
            handleSignals();
        }
    } catch (...) {
        stop.request_stop();
        leaveBehind(std::move(thread));
        throw;
    }
    unlocked([&thread] { thread.join(); });
    return result.get();
}

} // namespace zrnpy
