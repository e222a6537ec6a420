#include "frame_trailer.h"

#include <algorithm>

std::uint64_t frameTrailer(std::span<const unsigned char> frame)
{
    constexpr std::size_t headerBegin = 2;
    constexpr std::size_t headerEnd = 6;

    std::uint64_t trailer = 0;
    for (std::size_t i = headerBegin; i < std::min(headerEnd, frame.size()); ++i) {
        const std::int64_t extended = static_cast<signed char>(frame[i]);
        trailer |= static_cast<std::uint64_t>(extended) << (8 * (i - headerBegin));
    }
    return trailer;
}
