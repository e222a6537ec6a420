#include "waiting.h"

#include "module.h"

#include <mutex>
#include <vector>

namespace zrnpy
{
namespace
{

/// Never destroyed: a forked child has the threads' objects without the threads.
struct LeftBehind {
    const pid_t process = ::getpid();
    std::mutex mutex;
    std::vector<std::thread> threads;
};

LeftBehind& leftBehind()
{
    static auto* const all = new LeftBehind;
    return *all;
}

} // namespace

void leaveBehind(std::thread thread)
{
    LeftBehind& all = leftBehind();
    const std::lock_guard lock(all.mutex);
    all.threads.push_back(std::move(thread));
}

void awaitLeftBehind()
{
    LeftBehind& all = leftBehind();
    if (all.process != ::getpid()) {
        return;
    }
    const std::lock_guard lock(all.mutex);
    for (std::thread& thread : all.threads) {
        thread.join();
    }
    all.threads.clear();
}

void addWaiting(py::module_& module)
{
    leftBehind(); // belongs to this process
    module.def("await_left_behind", [] { unlocked(awaitLeftBehind); });
}

} // namespace zrnpy
