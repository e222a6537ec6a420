#pragma once

#include "client/bus.h"

#include <string>

namespace zrn
{

/// What lets this user open a camera's node that it may not open: the udev rule, where it belongs,
/// and how it takes effect; where a rule is in force that does not count for this user, the group.
/// One sentence without a capital or a full stop.
[[nodiscard]] std::string accessRemedy(const BusCamera& camera);

/// What brings back a node that is missing, likewise.
[[nodiscard]] std::string missingNodeRemedy();

} // namespace zrn
