#pragma once

#include "common/usb_bus.h"

/// Asks a bulk camera how large its payloads get: GET_MAX of the probe control, which changes
/// nothing in it, with a time-out of half a second.
///
/// @return bytes with the payload's header; nothing when the camera is isochronous, does not tell,
/// may not be opened or streams: an interface that a program or a kernel driver holds is left to
/// it.
std::optional<qint64> askPayloadBytes(const zrnhost::UsbCamera& camera);
