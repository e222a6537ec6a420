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

/// How far the rows of an image (0 for A, 1 for B) are out of place; 0 where they
/// all lie in place.
int rowShiftOf(const FrameRequest& request, int image);

/// The value that a host stores behind each image of a frame.
std::uint64_t trailerOf(const FrameRequest& request);

} // namespace zrnsim
