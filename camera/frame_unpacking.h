#pragma once

#include <cstddef>

/// How the two images of a camera lie in its packed frame.
enum class FrameLayout {
    Interleaved,        ///< A and B alternate byte by byte
    ReversedQuads,      ///< four bytes of A, four of B, each group in reverse order
    Single,             ///< image A alone, as it is
    BothEnds,           ///< rows filled from both ends towards the middle
    BothEndsMirrored,   ///< as BothEnds, with the right half of each row mirrored
    Strips,             ///< four strips at fixed distances, read out in turn
    InterleavedShifted, ///< as Interleaved, with rows to be realigned (row_alignment.h)
};

/// Bytes of a packed frame that unpackFrame reads: two for each pixel, or one with a single image.
std::size_t packedSize(FrameLayout layout, int width, int height);

/// Unpacks one packed frame.
///
/// Writes exactly width x height bytes to @p imageA and, unless the layout is Single, to @p imageB.
/// Pixels that the layout does not reach are 0; bytes that it would put outside the images are
/// dropped.
/// @param frame packedSize() bytes.
void unpackFrame(FrameLayout layout, const unsigned char* frame, int width, int height,
                 unsigned char* imageA, unsigned char* imageB);
