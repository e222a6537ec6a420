#include "pictures/row_alignment.h"

#include <algorithm>

namespace zrnsim
{

namespace
{

constexpr std::uint8_t kEarly = 0x30;
constexpr std::uint8_t kLate = 0x3A;
constexpr int kNarrowestShifted = 8; // narrower images are sent with their rows in place
constexpr std::size_t kFirstShifted = 2;

// The place of the mark within pixels 2 to 7 tells the shift.
constexpr std::array<RowAlignment, 7> kCycle = {{
    {1, {kEarly, 16, 55, 89, 0}},
    {0, {16, 55, 89, 0, 90}}, // pixel 2 may make another one of this
    {2, {16, kEarly, 55, 89, 0}},
    {-1, {kLate, 16, 55, 89, 0}},
    {3, {16, 55, kEarly, 89, 0}},
    {0, {16, kLate, 55, 89, 0}},
    {0, {16, 55, 89, kEarly, 90}}, // this late a mark means rows in place
}};
constexpr std::size_t kUnmarked = 1;
constexpr std::size_t kMarkedInPlace = 6;

/// With the mark in pixel 2, and none behind it.
constexpr RowAlignment kLatest = {-2, {16, 55, 89, 0, 90}};

/// With pixel 2 as here, the whole header is the one by which cameras announce rows in place.
constexpr std::uint8_t kInPlacePixel2 = 48;
constexpr RowAlignment kInPlace = {0, {165, 58, 90, 0, 90}};

} // namespace

RowAlignment rowAlignmentOf(std::uint32_t frameNumber, int image, std::uint8_t pixel2, int width)
{
    if (width < kNarrowestShifted) {
        return kCycle[kMarkedInPlace];
    }
    const std::size_t turn = (std::size_t{frameNumber} + (image == 0 ? 0 : 3)) % kCycle.size();
    if (turn == kUnmarked && pixel2 == kLate) {
        return kLatest;
    }
    if (turn == kUnmarked && pixel2 == kInPlacePixel2) {
        return kInPlace;
    }
    return kCycle[turn];
}

void shiftRows(std::uint8_t* image, std::size_t width, std::size_t height, int shift)
{
    if (shift == 0) {
        return;
    }
    // The pixels that leave a row at one end come in at the other.
    const std::size_t split =
        shift > 0 ? width - static_cast<std::size_t>(shift) : static_cast<std::size_t>(-shift);
    for (std::size_t y = kFirstShifted; y < height; ++y) {
        std::uint8_t* row = image + y * width;
        std::rotate(row, row + split, row + width);
    }
}

void repeatUncoveredEdges(std::uint8_t* image, std::size_t width, std::size_t height, int shift)
{
    if (shift == 0) { // an image that there is not, too
        return;
    }
    for (std::size_t y = kFirstShifted; y < height; ++y) {
        std::uint8_t* row = image + y * width;
        if (shift > 0) {
            const auto count = static_cast<std::size_t>(shift);
            std::copy(row + width - 2 * count, row + width - count, row + width - count);
        } else {
            const auto count = static_cast<std::size_t>(-shift);
            std::copy(row + count, row + 2 * count, row);
        }
    }
}

} // namespace zrnsim
