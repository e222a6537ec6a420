#pragma once

#include <cstddef>
#include <cstdint>

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

/// A pair of images of width x height pixels each.
struct ImageSize {
    std::size_t width;
    std::size_t height;

    std::size_t pixels() const { return width * height; }
};

/// Bytes that a frame needs to carry its images.
std::size_t packedSize(FrameLayout layout, const ImageSize& size);

/// True when every byte of the frame carries a pixel of its own and no pixel is missing: then a
/// host gets back exactly the images that were packed.
bool isLossless(FrameLayout layout, const ImageSize& size);

/// Packs images into the first packedSize() bytes of a frame. Bytes that carry no pixel become 0.
/// @param imageB not read by FrameLayout::Single
void packFrame(FrameLayout layout, const ImageSize& size, const std::uint8_t* imageA,
               const std::uint8_t* imageB, std::uint8_t* frame);

/// What a host makes of a frame whose layout does not suit its size: later bytes overwrite earlier
/// ones, bytes that point outside the images are lost, pixels that no byte points to are 0.
/// @param imageA, imageB size.pixels() bytes each
void scatterFrame(FrameLayout layout, const ImageSize& size, const std::uint8_t* frame,
                  std::uint8_t* imageA, std::uint8_t* imageB);

/// A pixel of one of the images.
struct PixelPlace {
    int image;         ///< 0 for A, 1 for B
    std::size_t index; ///< counted row by row
};

/// The pixel that a byte of the frame carries in a lossless layout.
/// @param offset below 8 and below packedSize(); any with the interleaved ones
PixelPlace pixelOf(FrameLayout layout, const ImageSize& size, std::size_t offset);

} // namespace zrnsim
