#include "exposure_units.h"

#include <limits>

namespace
{

enum class Step { Hundred, Fractional, One };

constexpr double fractionalStep = 22.22;
constexpr std::uint32_t hundredStep = 100;

Step stepOf(int sensorType)
{
    switch (sensorType) {
    case 0:
    case 15:
        return Step::Hundred;
    case 1:
    case 5:
        return Step::Fractional;
    default:
        return Step::One;
    }
}

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

std::int16_t exposureToDevice(int sensorType, std::uint32_t microseconds)
{
    switch (stepOf(sensorType)) {
    case Step::Hundred:
        return static_cast<std::int16_t>(microseconds / hundredStep);
    case Step::Fractional:
        return static_cast<std::int16_t>(static_cast<std::int32_t>(microseconds / fractionalStep));
    case Step::One:
        break;
    }
    return static_cast<std::int16_t>(microseconds);
}

std::uint32_t exposureLimitFromDevice(int sensorType, std::uint32_t count)
{
    switch (stepOf(sensorType)) {
    case Step::Hundred:
        return count * hundredStep;
    case Step::Fractional:
        return truncated(count * fractionalStep);
    case Step::One:
        break;
    }
    return count;
}

std::uint32_t exposureFromDevice(int sensorType, std::int16_t count)
{
    if (stepOf(sensorType) == Step::Fractional) {
        return truncated(count * fractionalStep);
    }
    return exposureLimitFromDevice(sensorType,
                                   static_cast<std::uint32_t>(static_cast<std::int32_t>(count)));
}
