#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

/// Numbers as files have them: the lowest byte first.
namespace zrn::little_endian
{

/// @p bytes must have room for the number at @p at.
template <typename Bytes, typename Number>
void put(Bytes&& bytes, std::size_t at, Number number)
{
    const auto bits = static_cast<std::make_unsigned_t<Number>>(number);
    for (std::size_t i = 0; i < sizeof(Number); ++i) {
        bytes[at + i] = static_cast<std::uint8_t>(bits >> (8 * i));
    }
}

/// @p bytes must have the number at @p at.
template <typename Number, typename Bytes>
Number get(const Bytes& bytes, std::size_t at)
{
    std::make_unsigned_t<Number> bits = 0;
    for (std::size_t i = sizeof(Number); i > 0; --i) {
        bits = static_cast<decltype(bits)>(std::uint64_t{bits} << 8 | bytes[at + i - 1]);
    }
    return static_cast<Number>(bits);
}

} // namespace zrn::little_endian
