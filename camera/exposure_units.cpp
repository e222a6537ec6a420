#include "exposure_units.h"

#include <limits>

namespace
{

constexpr double fractionalStep = 22.22;
constexpr std::uint32_t hundredStep = 100;

std::uint32_t truncated(double microseconds)
{
    if (microseconds <= 0.0) {
        return 0;
    }
    if (microseconds >= static_cast<double>(std::numeric_limits<std::uint32_t>::max())) {
        return std::numeric_limits<std::uint32_t>::max();
    }
    return static_cast<std::uint32_t>(microseconds);
}

} // namespace

std::int16_t exposureToDevice(ExposureStep step, std::uint32_t microseconds)
{
    switch (step) {
    case ExposureStep::Hundred:
        return static_cast<std::int16_t>(microseconds / hundredStep);
    case ExposureStep::Fractional:
        return static_cast<std::int16_t>(static_cast<std::int32_t>(microseconds / fractionalStep));
    case ExposureStep::One:
        break;
    }
    return static_cast<std::int16_t>(microseconds);
}

std::uint32_t exposureLimitFromDevice(ExposureStep step, std::uint32_t count)
{
    switch (step) {
    case ExposureStep::Hundred:
        return count * hundredStep;
    case ExposureStep::Fractional:
        return truncated(count * fractionalStep);
    case ExposureStep::One:
        break;
    }
    return count;
}

std::uint32_t exposureFromDevice(ExposureStep step, std::int16_t count)
{
    if (step == ExposureStep::Fractional) {
        return truncated(count * fractionalStep);
    }
    return exposureLimitFromDevice(step,
                                   static_cast<std::uint32_t>(static_cast<std::int32_t>(count)));
}
