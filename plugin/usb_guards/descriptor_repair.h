#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace usbguards
{

/// The class-specific descriptors of a video interface, as they stand one after another.
using DescriptorBlocks = std::span<std::uint8_t>;

/// Makes the descriptors of a video control interface safe for libuvc, which reads the lengths and
/// counts in them without looking at where they end. A descriptor that contradicts itself is made
/// one that libuvc skips, and so is a selector unit.
///
/// @param streamingInterfaces positions of the interfaces in the configuration that the header
/// may refer to.
/// @return how many bytes may be parsed; what follows cannot be told apart.
std::size_t repairControlBlocks(DescriptorBlocks blocks,
                                const std::vector<std::uint8_t>& streamingInterfaces);

/// Whether repaired control descriptors hold what libuvc takes for granted when it is asked for
/// formats and controls: a header that names a streaming interface, a camera terminal and a
/// processing unit.
bool areComplete(DescriptorBlocks blocks);

/// The same as repairControlBlocks() for a video streaming interface. A frame size with a
/// continuous range of intervals, with which libuvc divides by the frame rate 0 of "any", becomes
/// one with its default interval.
std::size_t repairStreamingBlocks(DescriptorBlocks blocks);

} // namespace usbguards
