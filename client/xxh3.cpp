#include "client/xxh3.h"

#include <xxhash.h>

namespace zrn
{

std::uint64_t xxh3(std::span<const std::uint8_t> bytes)
{
    return XXH3_64bits(bytes.data(), bytes.size());
}

} // namespace zrn
