#pragma once

#include <cstdint>
#include <span>

namespace zrn
{

/// The CRC-32 of Ethernet and PNG, of @p bytes, continuing @p before. Thread safety: reentrant.
std::uint32_t crc32(std::span<const std::uint8_t> bytes, std::uint32_t before = 0);

} // namespace zrn
