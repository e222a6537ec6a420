#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace zrnsim
{

/// The rows of a camera of sensor type 0 may arrive shifted. By how much stands in the first row,
/// in pixels 2 to 7 of each image; rows 0 and 1 are always in place.
struct RowAlignment {
    /// Pixels by which a host has to move the rows from 2 on: to the left when positive.
    int shift = 0;
    /// Pixels 3 to 7 of the first row. Pixel 2 holds a byte of the frame number.
    std::array<std::uint8_t, 5> header{};
};

inline constexpr std::size_t kAlignmentHeaderStart = 3; ///< pixel of RowAlignment::header[0]

/// The alignment of one image of a frame: goes through all that occur, frame by frame, and is
/// another one for image B than for image A.
/// @param image 0 for A, 1 for B
/// @param pixel2 pixel 2 of the image; some alignments need a certain value there
RowAlignment rowAlignmentOf(std::uint32_t frameNumber, int image, std::uint8_t pixel2, int width);

/// Shifts the rows from 2 on as the camera sends them.
/// @param image width x height bytes, width at least 8 unless the shift is 0
void shiftRows(std::uint8_t* image, std::size_t width, std::size_t height, int shift);

/// Puts the edges of an image in place as a host's realignment leaves them: the columns that the
/// move uncovers keep the pixels that the camera had sent there.
void repeatUncoveredEdges(std::uint8_t* image, std::size_t width, std::size_t height, int shift);

} // namespace zrnsim
