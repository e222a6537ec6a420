#pragma once

#include "client/bus.h"
#include "client/stream.h"

#include <optional>
#include <string>
#include <vector>

namespace zrn
{

/// What may keep a stream from delivering, as far as it can be told from here: one entry each, as
/// sentences, with what to type in lines of its own, the most telling first. Never empty.
///
/// @param answers whether the camera answers control requests
/// @param port of the camera: of others nothing is said, but that transfers of all share a memory
/// @param onBus with their holders
/// @param limitMiB as transferMemoryLimit() gives it
/// Thread safety: reentrant.
std::vector<std::string> explainSilence(const StreamCounters& counters, bool answers,
                                        const std::string& port,
                                        const std::vector<BusCamera>& onBus,
                                        std::optional<int> limitMiB);

} // namespace zrn
