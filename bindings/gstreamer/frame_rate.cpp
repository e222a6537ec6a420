#include "frame_rate.h"

#include <cstddef>
#include <cstdint>

namespace zrngst
{
namespace
{

/// Of the USB Video Class: class-specific interface descriptors of this subtype describe a size of
/// an uncompressed format.
constexpr std::uint8_t classSpecificInterface = 0x24;
constexpr std::uint8_t uncompressedFrame = 0x05;
constexpr std::size_t firstIntervalOffset = 26;
constexpr std::size_t intervalBytes = 4;

/// Unit of intervals.
using HundredNanoseconds = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;

std::uint32_t littleEndian(std::string_view bytes)
{
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        value |= std::uint32_t{static_cast<std::uint8_t>(bytes[i])} << (8 * i);
    }
    return value;
}

} // namespace

std::chrono::nanoseconds nominalPeriod(std::string_view descriptors)
{
    while (descriptors.size() > 2) {
        const auto length = static_cast<std::uint8_t>(descriptors[0]);
        if (length < 2 || length > descriptors.size()) {
            break;
        }
        const std::string_view descriptor = descriptors.substr(0, length);
        descriptors.remove_prefix(length);
        if (static_cast<std::uint8_t>(descriptor[1]) == classSpecificInterface &&
            static_cast<std::uint8_t>(descriptor[2]) == uncompressedFrame &&
            length >= firstIntervalOffset + intervalBytes) {
            return HundredNanoseconds(
                littleEndian(descriptor.substr(firstIntervalOffset, intervalBytes)));
        }
    }
    return {};
}

} // namespace zrngst
