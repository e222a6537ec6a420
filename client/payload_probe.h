#pragma once

#include "client/bus.h"

#include <cstdint>
#include <optional>

namespace zrn
{

/// Asks a bulk camera how large its payloads get: GET_MAX of the probe control, which changes
/// nothing in it, with a time-out of half a second.
///
/// @return bytes with the payload's header; nothing when the camera is isochronous, does not tell,
/// may not be opened, or is in use: what a program or a kernel driver holds is left to it.
std::optional<std::int64_t> askPayloadBytes(const BusCamera& camera);

} // namespace zrn
