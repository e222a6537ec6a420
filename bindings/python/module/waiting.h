#pragma once

#include <chrono>
#include <future>
#include <pybind11/pybind11.h>
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

/// Does @p work on a thread of its own, so that Ctrl-C can end the wait; the work then goes on, and
/// its result is thrown away. It must own what it uses.
template <typename Work>
auto interruptible(Work work)
{
    std::packaged_task<decltype(work())()> task(std::move(work));
    auto result = task.get_future();
    std::thread(std::move(task)).detach();
    while (unlocked([&result] { return result.wait_for(waitSlice); }) !=
           std::future_status::ready) {
        handleSignals();
    }
    return result.get();
}

} // namespace zrnpy
