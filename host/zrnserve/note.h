#pragma once

namespace zrnserve
{

/// Writes a line to the log, standard error. Thread safety: thread-safe.
[[gnu::format(printf, 1, 2)]] void note(const char* format, ...);

} // namespace zrnserve
