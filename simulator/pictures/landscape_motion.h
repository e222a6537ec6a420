#pragma once

#include "pictures/canvas.h"

#include <cstdint>

namespace zrnsim
{

// Where still and moving parts of the landscape meet, in units of ScenePlan
inline constexpr double kRail = 628.0;            ///< height of the rails on which the train runs
inline constexpr Point kMillHub = {178.0, 318.0}; ///< axle of the windmill's sails

/// Paints what moves in the landscape over its background.
void paintLandscapeMotion(Canvas& canvas, std::uint32_t frameNumber);

} // namespace zrnsim
