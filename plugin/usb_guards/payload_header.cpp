#include "payload_header.h"

namespace usbguards
{
namespace
{

// bmHeaderInfo.
constexpr std::uint8_t frameIdBit = 0x01;
constexpr std::uint8_t endOfFrameBit = 0x02;
constexpr std::uint8_t presentationTimeBit = 0x04;
constexpr std::uint8_t sourceClockBit = 0x08;
constexpr std::uint8_t errorBit = 0x40;

constexpr std::size_t sizeWithInfo = 2;

} // namespace

PayloadHeader PayloadHeader::of(std::span<const std::uint8_t> payload)
{
    PayloadHeader header;
    if (payload.empty() || payload[0] > payload.size()) {
        return header;
    }
    header.size = payload[0];
    header.dataSize = payload.size() - header.size;
    header.hasInfo = header.size >= sizeWithInfo;
    if (header.hasInfo) {
        const std::uint8_t info = payload[1];
        header.frameId = (info & frameIdBit) != 0;
        header.endsFrame = (info & endOfFrameBit) != 0;
        header.hasPresentationTime = (info & presentationTimeBit) != 0;
        header.hasSourceClock = (info & sourceClockBit) != 0;
        header.isIgnored = (info & errorBit) != 0;
    } else {
        header.isIgnored = false;
    }
    return header;
}

std::size_t PayloadHeader::announcedSize() const
{
    constexpr std::size_t presentationTimeSize = 4;
    constexpr std::size_t sourceClockSize = 6;
    return sizeWithInfo + (hasPresentationTime ? presentationTimeSize : 0) +
           (hasSourceClock ? sourceClockSize : 0);
}

} // namespace usbguards
