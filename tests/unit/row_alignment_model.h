#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <vector>

/// The realignment of rows as a plain model: one byte after another, with every move checked
/// against the image's edges.
/// @param image width x height bytes, and what stands behind them. In images of fewer than 8 pixels
/// the header goes on there, and beyond it counts as 0.
/// @return 1 when the rows stay as they are, 2 when they move.
inline int realignLikeModel(std::vector<unsigned char>& image, int width, int height)
{
    std::array<int, 8> header{};
    std::copy_n(image.begin(), std::min(image.size(), header.size()), header.begin());
    std::string joined;
    int z = -1;
    int c = -1;
    bool zeroBehindPosition2 = false;
    for (int p = 2; p <= 7; ++p) {
        const int byte = header[static_cast<std::size_t>(p)];
        joined += std::to_string(byte);
        z = byte == 0x30 ? p : z;
        c = byte == 0x3A ? p : c;
        zeroBehindPosition2 |= byte == 0x30 && p > 2;
    }
    const std::array<int, 8> alignedWithZero = {header[0], header[1], 48, 16, 55, 89, 0, 90};
    if (joined == "481655890090" || header == alignedWithZero) {
        return 1;
    }
    if (z > 5 || (z == -1 && c == -1)) {
        return 1;
    }
    const int move = zeroBehindPosition2 ? -(z - 2) : 4 - c;
    for (int row = 2; row < height; ++row) {
        const int begin = row * width;
        const std::vector<unsigned char> scratch(image.begin() + begin,
                                                 image.begin() + begin + width);
        for (int column = 0; column < width; ++column) {
            const int to = begin + column + move;
            // A move by the first mark stays in its row; one to the left by the second mark may
            // enter the row above, from row 2 on.
            const int lowest = zeroBehindPosition2 ? begin : 2 * width;
            if (to >= lowest && to < begin + width) {
                image[static_cast<std::size_t>(to)] = scratch[static_cast<std::size_t>(column)];
            }
        }
    }
    return 2;
}
