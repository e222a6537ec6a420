#pragma once

#include "client/findings.h"

#include <string>
#include <vector>

namespace zrn
{

/// Why cameras cannot be used, or that they can: looks at the bus, the system's settings, the USB
/// libraries and the driver, and has the driver open and close each camera that nobody uses. Takes
/// seconds where one does not open. A driver that can only open all cameras closes those of this
/// process for it.
///
/// @param plugin as findPlugin() takes it
/// @param root put before /sys, /dev, /proc and /run, to judge the files there: no camera is then
/// asked or opened. Empty for the running system. Thread safety: reentrant.
std::vector<Finding> examine(const std::string& plugin = {}, const std::string& root = {});

} // namespace zrn
