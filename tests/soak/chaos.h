#pragma once

#include "pauses.h"
#include "random.h"
#include "soak_camera.h"

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace soak
{

/// How often each kind of fault was caused.
using FaultCounts = std::map<std::string, std::uint64_t>;

/// Causes faults in the virtual cameras, and takes some back, until the round ends.
void causeFaults(const std::vector<std::unique_ptr<SoakCamera>>& cameras, Pauses& pauses,
                 unsigned seed, FaultCounts& counts);

} // namespace soak
