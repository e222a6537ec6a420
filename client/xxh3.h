#pragma once

#include <cstdint>
#include <span>

namespace zrn
{

/// XXH3-64 of @p bytes, without a seed. Thread safety: reentrant.
std::uint64_t xxh3(std::span<const std::uint8_t> bytes);

} // namespace zrn
