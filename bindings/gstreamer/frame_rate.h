#pragma once

#include <chrono>
#include <string_view>

namespace zrngst
{

/// Time from one frame to the next that a camera of these descriptors is set to when its stream
/// starts: the first that it offers for its first size. The real one may be longer, as with a long
/// exposure. Zero when the descriptors do not tell.
///
/// @param descriptors of device and configuration, as the device sent them
std::chrono::nanoseconds nominalPeriod(std::string_view descriptors);

} // namespace zrngst
