#pragma once

#include "pictures/canvas.h"

#include <cstdint>
#include <string>

namespace zrnsim
{

/// Something for a sensor to look at. Both functions fit the scene to any canvas.
struct Scene {
    /// Paints what never moves, over the whole canvas.
    /// @param caption a short line of text, digits and capital letters
    void (*paintBackground)(Canvas& canvas, const std::string& caption);
    /// Paints what moves over the background, as it stands at the time of a frame.
    void (*paintMotion)(Canvas& canvas, std::uint32_t frameNumber);
};

/// A test chart: gradients, gratings, checkerboards and a star, with gears and a radar screen.
extern const Scene kChartScene;

/// A landscape: a windmill, a train and clouds before mountains and a lake.
extern const Scene kLandscapeScene;

} // namespace zrnsim
