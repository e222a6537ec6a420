#include "process.h"

#include "client/error.h"

#include <atomic>

namespace zrnpy
{

void checkProcess(pid_t process)
{
    if (process != ::getpid()) {
        throw zrn::Error(zrn::Error::Kind::Plugin, "ForkedProcess",
                         "this process was forked from the one that uses the camera",
                         "start it with multiprocessing.get_context(\"spawn\"), and open the "
                         "camera in one process alone");
    }
}

void claimDriver()
{
    static std::atomic<pid_t> owner = 0;
    pid_t none = 0;
    if (!owner.compare_exchange_strong(none, ::getpid())) {
        checkProcess(owner);
    }
}

} // namespace zrnpy
