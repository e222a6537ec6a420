#pragma once

#include "checks/images.h"

namespace zrnhost
{

/// Images of one grab, owned.
using ImageBlocks = ContractSpace::Images;

using ContractSpace::grab;
using ContractSpace::isWellFormed;
using ContractSpace::trailerBytes;
using ContractSpace::trailerOf;

/// Letter of the image at @p position of a grab that gave @p count images: 'A' or 'B'. A single
/// image is A, except for a camera that reports one sensor: its frames hold B alone.
///
/// @param sensorCount value of the SensorCount property.
char imageLetter(int position, int count, int sensorCount);

} // namespace zrnhost
