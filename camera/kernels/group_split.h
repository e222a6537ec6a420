#pragma once

#include "group_layout.h"

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

/// Where streams begin; those that a layout does not have are left out.
using Streams = std::array<unsigned char*, groupSize>;

/// The groups that a kernel takes: some from the start of each of some rows.
struct Rows {
    const unsigned char* source;
    std::size_t groups;    ///< in each row
    std::size_t count = 1; ///< of rows
    std::size_t pitch = 0; ///< from one row of a stream to the next; of the source, twice as much
};

/// @param streams as many as the layout has, each where it begins.
void split(GroupLayout layout, const Rows& rows, const Streams& streams);

/// The name of the instruction set that the kernels use on this machine.
const char* instructionSet();

} // namespace kernels
