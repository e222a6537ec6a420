#pragma once

#include <string>

namespace zrn
{

/// What lets a user open a camera's node: the udev rule, where it belongs, and how it takes effect.
/// One sentence without a capital or a full stop.
[[nodiscard]] std::string accessRemedy();

/// What brings back a node that is missing, likewise.
[[nodiscard]] std::string missingNodeRemedy();

} // namespace zrn
