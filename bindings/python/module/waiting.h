#pragma once

#include <chrono>
#include <future>
#include <pybind11/pybind11.h>
#include <thread>

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

/// Runs @p work without the GIL.
template <typename Work>
auto unlocked(const Work& work)
{
    const pybind11::gil_scoped_release release;
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
