#pragma once

#include "camera_interface.h"
#include "camera_types.h"

#include <memory>
#include <vector>

namespace zrnhost
{

/// Images of one grab, owned.
using ImageBlocks = std::vector<std::unique_ptr<CameraSpace::ImageBlock>>;

/// Number of bytes behind the pixels of a block.
inline constexpr int trailerBytes = 8;

/// Grabs one frame and takes ownership of its images. @p images is empty unless the result is
/// success.
ErrorCode grab(CameraSpace::CameraInterface& camera, ImageBlocks& images);

/// Whether size and data of @p block agree, so that pixels and trailer can be read.
bool isWellFormed(const CameraSpace::ImageBlock& block);

/// The 8-byte trailer of a well-formed block.
quint64 trailerOf(const CameraSpace::ImageBlock& block);

/// Letter of the image at @p position of a grab that gave @p count images: 'A' or 'B'. A single
/// image is A, except for a camera that reports one sensor: its frames hold B alone.
///
/// @param sensorCount value of the SensorCount property.
char imageLetter(int position, int count, int sensorCount);

} // namespace zrnhost
