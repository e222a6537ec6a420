#pragma once

#include "pictures/frame_composer.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zrnsim
{

/// A byte that a camera puts over its picture.
struct HeaderByte {
    std::size_t offset; ///< in the frame
    std::uint8_t value;
};

/// The header of a frame: the frame number in bytes 2 to 5 and, next to it, what the sensor type
/// adds. Offsets may lie beyond the end of a very small frame.
std::vector<HeaderByte> headerOf(const FrameRequest& request);

/// The rows of a camera of sensor type 0 may arrive shifted, which its header tells; rows 0 and 1
/// are always in place.
/// @param image 0 for A, 1 for B
/// @return pixels by which a host has to move the others: to the left when positive
int rowShiftOf(const FrameRequest& request, int image);

} // namespace zrnsim
