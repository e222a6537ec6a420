#pragma once

#include <cstdint>
#include <string>

namespace zrnhost
{

/// "2026-11-21T10:15:00.123456789Z". @param utc nanoseconds since 1970
std::string dateText(std::int64_t utc);

} // namespace zrnhost
