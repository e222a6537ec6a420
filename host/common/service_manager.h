#pragma once

#include <chrono>
#include <optional>

namespace zrnhost
{

/// Tells the service manager that started this program, if one did, as sd_notify(3) does:
/// "READY=1". Thread safety: thread-safe.
void tellServiceManager(const char* state);

/// How often it is to be told "WATCHDOG=1", so that it does not take the program for one that
/// hangs; nothing when it does not watch.
std::optional<std::chrono::milliseconds> signOfLifePeriod();

} // namespace zrnhost
