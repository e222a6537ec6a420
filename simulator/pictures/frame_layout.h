#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zrnsim
{

/// How a camera reads its two sensors out into one frame.
enum class FrameLayout {
    Interleaved,        ///< A and B alternate byte by byte
    ReversedQuads,      ///< words of four pixels of A, then of B, the last pixel of each first
    Single,             ///< image A alone
    BothEnds,           ///< rows read from both ends towards the middle
    BothEndsMirrored,   ///< as BothEnds, the right half of each row read backwards
    Strips,             ///< four read-out channels, 320 pixels apart, for 1280 pixels in all
    InterleavedShifted, ///< as Interleaved, of images whose rows are out of place
};

/// The pixel that each byte of a frame carries: its index in image A and image B behind one
/// another, or the index behind both for a byte that carries none, as some do at sizes that do not
/// suit the layout.
std::vector<std::uint32_t> pixelsOf(FrameLayout layout, std::size_t width, std::size_t height);

} // namespace zrnsim
