#pragma once

#include "pictures/canvas.h"

#include <cmath>
#include <cstdint>
#include <numbers>
#include <string>

namespace zrnsim
{

/// Places a scene that is drawn for 1000 x 800 units on a canvas of any size: positions stretch
/// with the canvas, lengths keep their proportions, so that circles stay round.
class ScenePlan
{
public:
    explicit ScenePlan(const Canvas& canvas);

    Point at(double x, double y) const { return {x * m_scaleX, y * m_scaleY}; }
    int column(double x) const { return static_cast<int>(std::lround(x * m_scaleX)); }
    int row(double y) const { return static_cast<int>(std::lround(y * m_scaleY)); }
    double length(double units) const { return units * m_unit; }
    /// A length in whole pixels, at least 1.
    int pixels(double units) const;

private:
    double m_scaleX;
    double m_scaleY;
    double m_unit;
};

/// The angle of something that turns once in `period` frames.
inline double turnOf(std::uint32_t frameNumber, std::uint32_t period)
{
    return 2.0 * std::numbers::pi * (frameNumber % period) / period;
}

/// A rim of black and white blocks around a one pixel line at the very edge, by which a missing or
/// shifted row or column is seen at once.
void paintRim(Canvas& canvas);

/// Dots in the four corners, one in the upper left, two in the upper right, three in the lower
/// right, four in the lower left: a picture that is turned or mirrored shows them in the wrong
/// order.
void paintCornerDots(Canvas& canvas);

/// A letter on a dark plate, its upper left corner at x, y in units.
void paintLabel(Canvas& canvas, double x, double y, const std::string& letter);

/// A line of text, its centre at x, y in units.
/// @param dot dot of the font in units
void paintPlate(Canvas& canvas, double x, double y, double dot, const std::string& text);

/// The frame number on a plate at the foot of the picture.
void paintFrameNumber(Canvas& canvas, std::uint32_t frameNumber);

} // namespace zrnsim
