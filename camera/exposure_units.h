#pragma once

#include <cstdint>

/// Conversion between the exposure time of the host interface, in microseconds, and the device's
/// own count.

/// The step in which a sensor counts exposure.
enum class ExposureStep {
    One,        ///< 1 us
    Fractional, ///< 22.22 us
    Hundred,    ///< 100 us
};

/// @return the device's count: the low 16 bits of the converted time.
std::int16_t exposureToDevice(ExposureStep step, std::uint32_t microseconds);

/// @param count the device's count, sign-extended to 32 bits.
/// @return microseconds: the product wraps at a step of 100 us. At 22.22 us it is truncated, with
/// the count taken as unsigned, and saturates.
std::uint32_t exposureLimitFromDevice(ExposureStep step, std::uint32_t count);

/// As exposureLimitFromDevice, but at 22.22 us the count is taken as signed: a negative one yields
/// 0.
std::uint32_t exposureFromDevice(ExposureStep step, std::int16_t count);
