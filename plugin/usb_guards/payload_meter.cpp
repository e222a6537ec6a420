#include "payload_meter.h"

namespace usbguards
{
namespace
{

// bmHeaderInfo of a payload header.
constexpr std::uint8_t frameIdBit = 0x01;
constexpr std::uint8_t endOfFrameBit = 0x02;
constexpr std::uint8_t presentationTimeBit = 0x04;
constexpr std::uint8_t sourceClockBit = 0x08;
constexpr std::uint8_t errorBit = 0x40;

/// Bytes of a header with the fields that it announces, which libuvc reads whatever the header's
/// length says.
std::size_t announcedHeaderSize(std::uint8_t info)
{
    std::size_t size = 2;
    if (info & presentationTimeBit) {
        size += 4;
    }
    if (info & sourceClockBit) {
        size += 6;
    }
    return size;
}

} // namespace

bool PayloadMeter::accept(std::span<const std::uint8_t> payload, std::size_t capacity)
{
    if (payload.empty() || payload[0] > payload.size()) {
        return true; // libuvc ignores both
    }
    const std::size_t headerSize = payload[0];
    const std::size_t dataSize = payload.size() - headerSize;
    const bool hasInfo = headerSize >= 2;
    const std::uint8_t info = hasInfo ? payload[1] : 0;
    if (info & errorBit) {
        return true; // libuvc drops it
    }
    if (hasInfo && announcedHeaderSize(info) > capacity) {
        return false;
    }

    const bool frameId = hasInfo ? (info & frameIdBit) != 0 : m_frameId;
    const std::size_t collected = frameId == m_frameId ? m_collected : 0;
    if (dataSize > frameBufferSize - collected) {
        return false;
    }
    const bool endsFrame = dataSize > 0 && (info & endOfFrameBit);
    m_frameId = frameId;
    m_collected = endsFrame ? 0 : collected + dataSize;
    return true;
}

} // namespace usbguards
