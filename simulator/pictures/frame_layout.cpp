#include "pictures/frame_layout.h"

namespace zrnsim
{

namespace
{

constexpr std::size_t kGroup = 8; // bytes: four pixels of A, four of B
constexpr std::size_t kStripDistance = 320;

/// Where the pixel of a mirrored row comes from.
std::size_t mirrored(std::size_t x, std::size_t width)
{
    const std::size_t half = width / 2;
    const std::size_t reach = width / 4;
    const bool isMoved = (x >= half && x < half + reach) || x >= width - reach;
    return isMoved ? width - 1 + half - x : x;
}

} // namespace

std::vector<std::uint32_t> pixelsOf(FrameLayout layout, std::size_t width, std::size_t height)
{
    const std::size_t pixels = width * height;
    const std::size_t bytes = layout == FrameLayout::Single ? pixels : 2 * pixels;
    std::vector<std::uint32_t> places(bytes, static_cast<std::uint32_t>(2 * pixels));
    const auto carry = [&](std::size_t offset, std::size_t image, std::size_t index) {
        if (offset < bytes && index < pixels) {
            places[offset] = static_cast<std::uint32_t>(image * pixels + index);
        }
    };
    for (std::size_t y = 0; y < height; ++y) {
        const std::size_t first = y * width;
        const std::size_t last = first + width - 1;
        const std::size_t row = 2 * first;
        switch (layout) {
        case FrameLayout::Single:
            for (std::size_t i = first; i <= last; ++i) {
                carry(i, 0, i);
            }
            break;
        case FrameLayout::Interleaved:
        case FrameLayout::InterleavedShifted:
            for (std::size_t i = first; i <= last; ++i) {
                carry(2 * i, 0, i);
                carry(2 * i + 1, 1, i);
            }
            break;
        case FrameLayout::ReversedQuads: // which do not end with a row
            for (std::size_t i = first; i <= last && i < pixels / 4 * 4; ++i) {
                const std::size_t offset = i / 4 * kGroup + 3 - i % 4;
                carry(offset, 0, i);
                carry(offset + kGroup / 2, 1, i);
            }
            break;
        case FrameLayout::BothEnds:
        case FrameLayout::BothEndsMirrored:
            // The last group of a row that is no multiple of four pixels wide reaches into the
            // next row.
            for (std::size_t i = 0; i < 2 * width; i += kGroup / 2) {
                const std::size_t image = i / (kGroup / 2) % 2;
                const std::size_t inward = i / kGroup * 2;
                carry(row + i, image, first + inward);
                carry(row + i + 1, image, last - inward);
                carry(row + i + 2, image, first + inward + 1);
                carry(row + i + 3, image, last - inward - 1);
            }
            break;
        case FrameLayout::Strips: // counted through the whole frame
            for (std::size_t i = 0; i < 2 * width; ++i) {
                carry(row + i, (row + i) / (kGroup / 2) % 2,
                      (row + i) % 4 * kStripDistance + first + i / kGroup);
            }
            break;
        }
    }
    if (layout == FrameLayout::BothEndsMirrored) {
        for (std::uint32_t& place : places) {
            if (place < 2 * pixels) {
                const std::size_t x = place % width;
                place = static_cast<std::uint32_t>(place - x + mirrored(x, width));
            }
        }
    }
    return places;
}

} // namespace zrnsim
