#pragma once

#include "pauses.h"
#include "random.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace soak
{

/// How often each kind of fault was caused.
using FaultCounts = std::map<std::string, std::uint64_t>;

/// What a fault does to the frames on their way.
enum class Harm { None, BrokenWire, Departure };

/// Told of each fault just before it is caused. @param camera index of the virtual camera
using HarmObserver = std::function<void(std::size_t camera, Harm harm)>;

/// Causes faults in the virtual cameras, and takes some back, until the round ends.
void causeFaults(std::size_t cameraCount, const HarmObserver& onHarm, Pauses& pauses, unsigned seed,
                 FaultCounts& counts);

} // namespace soak
