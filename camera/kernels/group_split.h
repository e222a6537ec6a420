#pragma once

#include <array>
#include <cstddef>

/// The inner loops of the unpacking: they deal the bytes of a packed frame out to streams.
///
/// A packed frame is made of groups of eight bytes. From each row, a kernel gives every stream its
/// bytes of the first group, then those of the second, and so on. Source and streams must not
/// overlap; a kernel touches no byte but those it deals. Stateless: any thread.
///
/// The best instruction set of the machine is chosen at the first call.
namespace kernels
{

using Bytes = unsigned char*;

/// The groups that a kernel takes: some from the start of each of some rows.
struct Rows {
    const unsigned char* source;
    std::size_t groups;    ///< in each row
    std::size_t count = 1; ///< of rows
    std::size_t pitch = 0; ///< from one row of a stream to the next; of the source, twice as much
};

/// Bytes 0 2 4 6 to the first stream, 1 3 5 7 to the second.
void splitAlternating(const Rows& rows, const std::array<Bytes, 2>& streams);

/// Bytes 3 2 1 0 to the first stream, 7 6 5 4 to the second.
void splitReversedQuads(const Rows& rows, const std::array<Bytes, 2>& streams);

/// Bytes 0 2, 1 3, 4 6 and 5 7 to one stream each.
void splitSides(const Rows& rows, const std::array<Bytes, 4>& streams);

/// As splitSides, but the second and the fourth stream run downwards from where they point to.
void splitBothEnds(const Rows& rows, const std::array<Bytes, 4>& streams);

/// One byte to each of eight streams.
void splitStrips(const Rows& rows, const std::array<Bytes, 8>& streams);

/// The name of the instruction set that the kernels use on this machine.
const char* instructionSet();

} // namespace kernels
