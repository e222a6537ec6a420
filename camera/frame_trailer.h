#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

/// Bytes behind the pixels of each cached frame and of each image.
inline constexpr std::size_t frameTrailerSize = sizeof(std::uint64_t);

/// The trailer of a frame, from bytes 2 to 5 of its data.
///
/// Each byte is sign-extended before it is shifted into place, so a byte of 0x80 or more sets every
/// bit above it; hosts rely on these values. Bytes that a tiny frame does not have count as 0.
std::uint64_t frameTrailer(std::span<const unsigned char> frame);
