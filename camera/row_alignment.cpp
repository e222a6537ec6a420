#include "row_alignment.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace
{

constexpr unsigned char leftMark = 0x30;
constexpr unsigned char rightMark = 0x3A;

// The headers of rows that need no move.
constexpr std::array<AlignmentHeader, 2> alignedHeaders = {{
    {48, 165, 58, 90, 0, 90},
    {48, 16, 55, 89, 0, 90},
}};

/// Last position of a mark in the image, or -1.
int lastPosition(const AlignmentHeader& header, unsigned char mark)
{
    const auto behind = std::find(header.rbegin(), header.rend(), mark).base();
    return behind == header.begin() ? -1
                                    : static_cast<int>(alignmentHeaderBegin) +
                                          static_cast<int>(behind - header.begin()) - 1;
}

AlignmentHeader headerOf(std::span<const unsigned char> image)
{
    AlignmentHeader header{};
    for (std::size_t i = 0; i < header.size() && alignmentHeaderBegin + i < image.size(); ++i) {
        header[i] = image[alignmentHeaderBegin + i];
    }
    return header;
}

void moveRun(std::span<unsigned char> run, int shift)
{
    const auto distance = static_cast<std::size_t>(std::abs(shift));
    if (distance >= run.size()) {
        return;
    }
    const std::size_t kept = run.size() - distance;
    if (shift > 0) {
        std::memmove(run.data() + distance, run.data(), kept);
    } else {
        std::memmove(run.data(), run.data() + distance, kept);
    }
}

} // namespace

std::optional<RowShift> rowShift(const AlignmentHeader& header)
{
    if (std::ranges::find(alignedHeaders, header) != alignedHeaders.end()) {
        return std::nullopt;
    }
    const int left = lastPosition(header, leftMark);
    const int right = lastPosition(header, rightMark);
    if (left > 5 || (left == -1 && right == -1)) {
        return std::nullopt;
    }
    if (left > 2) {
        return RowShift{2 - left, false};
    }
    return RowShift{4 - right, right > 4};
}

RowAlignment realignRows(std::span<unsigned char> image, int width, int height)
{
    if (!image.data()) {
        return RowAlignment::NoData;
    }
    const std::optional<RowShift> shift = rowShift(headerOf(image));
    if (!shift) {
        return RowAlignment::Unchanged;
    }
    if (height <= firstMovedRow) {
        return RowAlignment::Shifted;
    }

    const auto rowLength = static_cast<std::size_t>(width);
    const std::span<unsigned char> moved = image.first(rowLength * static_cast<std::size_t>(height))
                                               .subspan(firstMovedRow * rowLength);
    const std::size_t runLength = shift->acrossRows ? moved.size() : rowLength;
    for (std::size_t begin = 0; begin < moved.size(); begin += runLength) {
        moveRun(moved.subspan(begin, runLength), shift->pixels);
    }
    return RowAlignment::Shifted;
}
