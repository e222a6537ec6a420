#pragma once

#include "pictures/canvas.h"

#include <cmath>
#include <cstdint>
#include <numbers>
#include <string_view>

// What both scenes have, and what their parts are drawn with.
namespace zrnsim
{

/// How far something has come that takes `period` frames, 0 to 1.
inline double progressOf(std::uint32_t frameNumber, std::uint32_t period)
{
    return static_cast<double>(frameNumber % period) / period;
}

/// The angle of something that turns once in `period` frames.
inline double turnOf(std::uint32_t frameNumber, std::uint32_t period)
{
    return 2.0 * std::numbers::pi * progressOf(frameNumber, period);
}

inline Point onCircle(Point center, double radius, double angle)
{
    return {center.x + radius * std::cos(angle), center.y + radius * std::sin(angle)};
}

/// A rim of black and white blocks around a one pixel line at the very edge, by which a missing or
/// shifted row or column is seen at once.
void paintRim(Canvas& canvas);

/// Dots in the four corners, one in the upper left, two in the upper right, three in the lower
/// right, four in the lower left: a picture that is turned or mirrored shows them in the wrong
/// order.
void paintCornerDots(Canvas& canvas);

/// A line of text on a dark plate, its centre at x, y in units.
/// @param dot dot of the font in units
void paintPlate(Canvas& canvas, double x, double y, double dot, std::string_view text);

/// The frame number on a plate at the foot of the picture.
void paintFrameNumber(Canvas& canvas, std::uint32_t frameNumber);

} // namespace zrnsim
