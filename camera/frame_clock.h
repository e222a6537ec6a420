#pragma once

#include "driver_clock.h"

#include <QTime>

#include <chrono>

inline constexpr int millisecondsPerDay = 86'400'000;

/// What the frame rate is measured with: a steady clock, told as a time of day.
///
/// It stands in for QTime::currentTime(), which looks up the time zone on each call: three
/// allocations and a system call for every frame.
inline QTime frameClock()
{
    const auto now = steadyTime().time_since_epoch();
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
    return QTime::fromMSecsSinceStartOfDay(static_cast<int>(milliseconds % millisecondsPerDay));
}
