#include "common/service_manager.h"

#ifdef ZRN_HAVE_LIBSYSTEMD
#include <systemd/sd-daemon.h>

void zrnhost::tellServiceManager(const char* state)
{
    ::sd_notify(0, state);
}

std::optional<std::chrono::milliseconds> zrnhost::signOfLifePeriod()
{
    constexpr int signsInTime = 4;
    std::uint64_t microseconds = 0;
    if (::sd_watchdog_enabled(0, &microseconds) <= 0) {
        return std::nullopt;
    }
    return std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::microseconds(microseconds) / signsInTime);
}
#else
void zrnhost::tellServiceManager(const char* /*state*/) {}

std::optional<std::chrono::milliseconds> zrnhost::signOfLifePeriod()
{
    return std::nullopt;
}
#endif
