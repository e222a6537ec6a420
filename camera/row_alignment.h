#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <tuple>

/// Rows before this one are never moved.
inline constexpr int firstMovedRow = 2;

/// Where the pixels lie that tell by how much the rows of an image are shifted.
inline constexpr std::size_t alignmentHeaderBegin = 2;
using AlignmentHeader = std::array<unsigned char, 6>;
inline constexpr std::size_t alignmentHeaderEnd =
    alignmentHeaderBegin + std::tuple_size_v<AlignmentHeader>;

/// How the rows of an image are to be moved.
struct RowShift {
    int pixels = 0; ///< to the right where positive: -3 to 5
    /// The moved rows move as one run, so that what leaves a row on the left ends the row above;
    /// otherwise each row is a run of its own.
    bool acrossRows = false;
};

/// The move that a header asks for; none when the rows are right as they stand or the header does
/// not tell. It tells by the last places of 0x30 and 0x3A.
std::optional<RowShift> rowShift(const AlignmentHeader& header);

/// What realignRows did to an image.
enum class RowAlignment {
    NoData = 0,    ///< there is no image
    Unchanged = 1, ///< the rows are right as they stand, or the header does not tell the shift
    Shifted = 2,   ///< the rows from firstMovedRow on were moved
};

/// Moves the rows of an image whose content arrives shifted, as its header asks.
///
/// Nothing leaves its run, and the pixels that a move uncovers keep their values.
/// @param image width x height bytes, changed in place, and what stands behind them as far as it is
/// known: in images of fewer than 8 pixels the header goes on there, and counts as 0 beyond.
RowAlignment realignRows(std::span<unsigned char> image, int width, int height);
