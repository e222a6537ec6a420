#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// Which byte of a group goes where: one row for each layout.
namespace kernels
{

inline constexpr std::size_t groupSize = 8;

/// How the pixels of a group are dealt out to streams.
enum class GroupLayout : std::size_t {
    Interleaved,   ///< bytes 0 2 4 6 and 1 3 5 7
    ReversedQuads, ///< bytes 3 2 1 0 and 7 6 5 4
    Sides,         ///< bytes 0 2, 1 3, 4 6 and 5 7
    BothEnds,      ///< as Sides, but the second and the fourth stream run downwards
    Strips,        ///< one byte to each of eight streams
};

/// What two neighbouring groups give to their streams: the first stream's bytes of both groups,
/// then the second stream's, and so on. In this form a vector of 16 bytes is sorted by one table
/// look-up.
using GroupOrder = std::array<std::uint8_t, 2 * groupSize>;

/// Whether a stream runs from where it points to upwards or downwards.
enum class Direction : std::uint8_t { Up, Down };

struct GroupTraits {
    GroupLayout layout;
    std::size_t streams;
    GroupOrder order;
    std::array<Direction, groupSize> directions; ///< of the streams; the rest is not used
};

inline constexpr Direction up = Direction::Up;
inline constexpr Direction down = Direction::Down;

inline constexpr auto groupLayouts = std::to_array<GroupTraits>({
    // clang-format off
    {GroupLayout::Interleaved,   2, {0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15}, {}},
    {GroupLayout::ReversedQuads, 2, {3, 2, 1, 0, 11, 10, 9, 8, 7, 6, 5, 4, 15, 14, 13, 12}, {}},
    {GroupLayout::Sides,         4, {0, 2, 8, 10, 1, 3, 9, 11, 4, 6, 12, 14, 5, 7, 13, 15}, {}},
    {GroupLayout::BothEnds,      4, {0, 2, 8, 10, 1, 3, 9, 11, 4, 6, 12, 14, 5, 7, 13, 15}, {up, down, up, down}},
    {GroupLayout::Strips,        8, {0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15}, {}},
    // clang-format on
});

constexpr const GroupTraits& traitsOf(GroupLayout layout)
{
    return groupLayouts[static_cast<std::size_t>(layout)];
}

} // namespace kernels
