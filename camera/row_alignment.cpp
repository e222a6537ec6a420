#include "row_alignment.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <vector>

namespace
{

constexpr int headerBegin = 2;
constexpr int headerEnd = 8;
constexpr int firstMovedRow = 2;

constexpr unsigned char leftMark = 0x30;
constexpr unsigned char rightMark = 0x3A;

// The header of rows that need no move, its bytes written as decimal numbers and joined.
constexpr auto alignedText = "481655890090";
// The same header as some cameras send it; joined, it falls one digit short.
constexpr std::array<unsigned char, headerEnd - headerBegin> alignedHeader = {48, 16, 55,
                                                                              89, 0,  90};

using Header = std::array<unsigned char, headerEnd - headerBegin>;

bool isAligned(const Header& header)
{
    std::string text;
    for (const unsigned char byte : header) {
        text += std::to_string(byte);
    }
    return text == alignedText || header == alignedHeader;
}

/// Highest position of @p mark among the image's bytes 2 to 7, or -1.
int lastPosition(const Header& header, unsigned char mark)
{
    const auto found = std::find(header.rbegin(), header.rend(), mark);
    return found == header.rend() ? -1 : headerEnd - 1 - static_cast<int>(found - header.rbegin());
}

/// Moves every row from row 2 on by @p shift pixels, to the right where positive. What leaves a row
/// on the left ends up in the row above it, but never above row 2.
void moveRows(std::span<unsigned char> image, int width, int height, int shift, bool intoRowAbove)
{
    const std::ptrdiff_t rowLength = width;
    const std::ptrdiff_t firstByte = firstMovedRow * rowLength;
    std::vector<unsigned char> scratch(static_cast<std::size_t>(width));

    for (std::ptrdiff_t row = firstMovedRow; row < height; ++row) {
        const std::ptrdiff_t begin = row * rowLength;
        std::memcpy(scratch.data(), image.data() + begin, scratch.size());

        const std::ptrdiff_t lowest = intoRowAbove ? firstByte : begin;
        const std::ptrdiff_t source = std::max<std::ptrdiff_t>(0, lowest - (begin + shift));
        const std::ptrdiff_t count = rowLength - std::max(0, shift) - source;
        if (count > 0) {
            std::memcpy(image.data() + begin + shift + source, scratch.data() + source,
                        static_cast<std::size_t>(count));
        }
    }
}

} // namespace

RowAlignment realignRows(std::span<unsigned char> image, int width, int height)
{
    if (image.data() == nullptr) {
        return RowAlignment::NoData;
    }
    if (image.size() < headerEnd) {
        return RowAlignment::Unchanged;
    }

    Header header;
    std::copy_n(image.begin() + headerBegin, header.size(), header.begin());
    if (isAligned(header)) {
        return RowAlignment::Unchanged;
    }

    const int left = lastPosition(header, leftMark);
    const int right = lastPosition(header, rightMark);
    if (left > 5 || (left == -1 && right == -1)) {
        return RowAlignment::Unchanged;
    }

    if (left > headerBegin) {
        moveRows(image, width, height, headerBegin - left, false);
    } else {
        moveRows(image, width, height, 4 - right, true);
    }
    return RowAlignment::Shifted;
}
