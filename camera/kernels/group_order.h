#pragma once

#include "group_split.h"

#include <array>
#include <cstddef>
#include <cstdint>

/// Which byte of a group goes where.
namespace kernels
{

inline constexpr std::size_t groupSize = 8;

/// What two neighbouring groups give to their streams: the first stream's bytes of both groups,
/// then the second stream's, and so on. In this form a vector of 16 bytes is sorted by one table
/// look-up.
using GroupOrder = std::array<std::uint8_t, 2 * groupSize>;

inline constexpr GroupOrder alternatingOrder = {0, 2, 4, 6, 8, 10, 12, 14,
                                                1, 3, 5, 7, 9, 11, 13, 15};
inline constexpr GroupOrder reversedQuadsOrder = {3, 2, 1, 0, 11, 10, 9,  8,
                                                  7, 6, 5, 4, 15, 14, 13, 12};
inline constexpr GroupOrder sidesOrder = {0, 2, 8, 10, 1, 3, 9, 11, 4, 6, 12, 14, 5, 7, 13, 15};
inline constexpr GroupOrder stripsOrder = {0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15};

/// Whether a stream runs from its first byte upwards or downwards.
enum class Direction { Up, Down };

template <std::size_t streamCount>
using Directions = std::array<Direction, streamCount>;

inline constexpr Directions<2> twoUp = {Direction::Up, Direction::Up};
inline constexpr Directions<4> fourUp = {Direction::Up, Direction::Up, Direction::Up,
                                         Direction::Up};
inline constexpr Directions<4> towardsEachOther = {Direction::Up, Direction::Down, Direction::Up,
                                                   Direction::Down};
inline constexpr Directions<8> eightUp = {};

/// Deals groups one byte after another.
template <const GroupOrder& order, std::size_t streamCount,
          const Directions<streamCount>& directions>
void splitPlainly(const Rows& rows, const std::array<Bytes, streamCount>& streams)
{
    constexpr std::size_t share = groupSize / streamCount;
    for (std::size_t row = 0; row < rows.count; ++row) {
        const unsigned char* source = rows.source + 2 * rows.pitch * row;
        for (std::size_t group = 0; group < rows.groups; ++group) {
            for (std::size_t stream = 0; stream < streamCount; ++stream) {
                unsigned char* target = streams[stream] + rows.pitch * row;
                for (std::size_t i = 0; i < share; ++i) {
                    const auto position = static_cast<std::ptrdiff_t>(share * group + i);
                    target[directions[stream] == Direction::Up ? position : -position] =
                        source[groupSize * group + order[2 * share * stream + i]];
                }
            }
        }
    }
}

} // namespace kernels
