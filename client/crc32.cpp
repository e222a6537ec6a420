#include "client/crc32.h"

#include <array>

namespace zrn
{
namespace
{

constexpr std::uint32_t polynomial = 0xedb88320U; // bits from the lowest to the highest
constexpr std::size_t atOnce = 8;                 // bytes that are looked up together
constexpr unsigned byteValues = 256;

using Tables = std::array<std::array<std::uint32_t, byteValues>, atOnce>;

/// Table n has the remainder of each byte with n bytes of zero behind it.
constexpr Tables makeTables()
{
    Tables tables{};
    for (unsigned byte = 0; byte < byteValues; ++byte) {
        std::uint32_t remainder = byte;
        for (int bit = 0; bit < 8; ++bit) {
            remainder = remainder >> 1 ^ ((remainder & 1U) != 0 ? polynomial : 0U);
        }
        tables[0][byte] = remainder;
    }
    for (std::size_t n = 1; n < atOnce; ++n) {
        for (unsigned byte = 0; byte < byteValues; ++byte) {
            const std::uint32_t remainder = tables[n - 1][byte];
            tables[n][byte] = remainder >> 8 ^ tables[0][remainder & 0xffU];
        }
    }
    return tables;
}

constexpr Tables tables = makeTables();

} // namespace

std::uint32_t crc32(std::span<const std::uint8_t> bytes, std::uint32_t before)
{
    std::uint32_t crc = ~before;
    while (bytes.size() >= atOnce) {
        const std::uint32_t first = crc ^ (bytes[0] | static_cast<std::uint32_t>(bytes[1]) << 8 |
                                           static_cast<std::uint32_t>(bytes[2]) << 16 |
                                           static_cast<std::uint32_t>(bytes[3]) << 24);
        crc = tables[7][first & 0xffU] ^ tables[6][first >> 8 & 0xffU] ^
              tables[5][first >> 16 & 0xffU] ^ tables[4][first >> 24] ^ tables[3][bytes[4]] ^
              tables[2][bytes[5]] ^ tables[1][bytes[6]] ^ tables[0][bytes[7]];
        bytes = bytes.subspan(atOnce);
    }
    for (const std::uint8_t byte : bytes) {
        crc = crc >> 8 ^ tables[0][(crc ^ byte) & 0xffU];
    }
    return ~crc;
}

} // namespace zrn
