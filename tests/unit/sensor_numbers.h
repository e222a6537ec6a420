#pragma once

#include "sensor_types.h"

#include <limits>
#include <vector>

/// Numbers that no sensor has, whatever sensors there are.
inline constexpr std::array unknownSensors = {
    std::numeric_limits<int>::min(), -100, -1,    9,
    sensorTypes.back().number + 1,   255,  65535, std::numeric_limits<int>::max()};

/// The numbers of the sensors for which @p predicate holds.
template <typename Predicate>
std::vector<int> sensorsWhere(Predicate predicate)
{
    std::vector<int> numbers;
    for (const SensorType& type : sensorTypes) {
        if (predicate(type)) {
            numbers.push_back(type.number);
        }
    }
    return numbers;
}

inline std::vector<int> sensorsWith(FrameLayout layout)
{
    return sensorsWhere([layout](const SensorType& type) { return type.layout == layout; });
}

/// The first sensor with each of the layouts.
inline std::vector<int> sensorOfEachLayout()
{
    return sensorsWhere(
        [](const SensorType& type) { return sensorsWith(type.layout).front() == type.number; });
}

/// The known numbers and the unknown ones.
inline std::vector<int> everySensor()
{
    std::vector<int> numbers = sensorsWhere([](const SensorType&) { return true; });
    numbers.insert(numbers.end(), unknownSensors.begin(), unknownSensors.end());
    return numbers;
}
