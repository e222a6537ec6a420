#pragma once

#include <cstdint>

/// Conversion between the exposure time of the host interface, in microseconds, and the device's
/// own count, whose step depends on the sensor: 100 us (types 0 and 15), 22.22 us (types 1 and 5),
/// else 1 us.

/// @return the device's count: the low 16 bits of the converted time.
std::int16_t exposureToDevice(int sensorType, std::uint32_t microseconds);

/// @param count the device's count, sign-extended to 32 bits.
/// @return microseconds: the product wraps at a step of 100 us. At 22.22 us it is truncated, with
/// the count taken as unsigned, and saturates.
std::uint32_t exposureLimitFromDevice(int sensorType, std::uint32_t count);

/// As exposureLimitFromDevice, but at 22.22 us the count is taken as signed: a negative one yields
/// 0.
std::uint32_t exposureFromDevice(int sensorType, std::int16_t count);
