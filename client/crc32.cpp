#include "client/crc32.h"

#include <zlib.h>

namespace zrn
{

std::uint32_t crc32(std::span<const std::uint8_t> bytes, std::uint32_t before)
{
    // Without a pointer zlib starts anew.
    return bytes.empty()
               ? before
               : static_cast<std::uint32_t>(::crc32_z(before, bytes.data(), bytes.size()));
}

} // namespace zrn
