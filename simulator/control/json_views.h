#pragma once

#include "model/bus.h"

#include <nlohmann/json_fwd.hpp>

namespace zrnsim
{

/// How the state of a camera reads on the control socket. Times are seconds of the monotonic clock;
/// 64-bit serials are strings, because many JSON readers round large numbers.
nlohmann::json describeCamera(std::size_t index, const Camera& camera, const Bus& bus);
nlohmann::json describeCounters(const Counters& counters);
nlohmann::json describeControls(const ControlSet& controls);
nlohmann::json describeTrace(const std::vector<TraceEntry>& entries);
nlohmann::json describeFrames(const std::vector<SentFrame>& frames);

/// Reads back what describeFrames() wrote, so that the frame can be rendered again.
FrameRequest parseFrameRequest(const nlohmann::json& frame);

} // namespace zrnsim
