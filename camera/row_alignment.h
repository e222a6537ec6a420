#pragma once

#include <cstddef>
#include <span>

/// What realignRows did to an image.
enum class RowAlignment {
    NoData = 0,    ///< there is no image
    Unchanged = 1, ///< the rows are right as they stand, or the header does not tell the shift
    Shifted = 2,   ///< rows 2 and onward were moved
};

/// Moves the rows of an image whose content arrives shifted, by the distance that pixels 2 to 7
/// tell.
///
/// These six header bytes hold 0x30 and 0x3A at places that depend on the shift. Rows 0 and 1 are
/// never touched. The pixels that a move uncovers keep their values.
/// @param image width x height bytes, changed in place; nothing outside it is read or written.
RowAlignment realignRows(std::span<unsigned char> image, int width, int height);
