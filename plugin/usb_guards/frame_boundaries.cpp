#include "frame_boundaries.h"

#include <algorithm>

namespace usbguards
{
namespace
{

/// The bits above are reserved.
constexpr std::uint32_t busFrameBits = 0x7FF;

std::uint32_t littleEndian(std::span<const std::uint8_t> bytes)
{
    std::uint32_t value = 0;
    for (std::size_t i = bytes.size(); i > 0; --i) {
        value = value << 8U | bytes[i - 1];
    }
    return value;
}

} // namespace

std::span<const FrameBoundaries::EndedFrame>
FrameBoundaries::follow(const PayloadHeader& header, std::span<const std::uint8_t> payload,
                        std::int64_t now)
{
    m_endedCount = 0;
    if (!header.isIgnored) {
        if (header.hasInfo) {
            if (header.frameId != m_frameId && m_frame.bytes != 0) {
                endFrame();
            }
            m_frameId = header.frameId;
        }
        if (header.dataSize > 0) {
            if (m_frame.bytes == 0) {
                m_frame.first = now;
            }
            m_frame.last = now;
            m_frame.bytes += std::min<std::uint64_t>(header.dataSize, m_limit - m_frame.bytes);
            readClocks(header, payload);
            if (header.endsFrame || m_frame.bytes == m_limit) {
                endFrame();
            }
        }
    }
    return std::span(m_ended).first(m_endedCount);
}

void FrameBoundaries::readClocks(const PayloadHeader& header, std::span<const std::uint8_t> payload)
{
    if (header.announcedSize() > header.size) {
        return; // what it announces is picture
    }
    std::size_t offset = 2;
    if (header.hasPresentationTime) {
        if (!m_frame.presentationTime) {
            m_frame.presentationTime = littleEndian(payload.subspan(offset, 4));
        }
        offset += 4;
    }
    if (header.hasSourceClock && !m_frame.sourceClock) {
        m_frame.sourceClock = {littleEndian(payload.subspan(offset, 4)),
                               static_cast<std::uint16_t>(
                                   littleEndian(payload.subspan(offset + 4, 2)) & busFrameBits)};
    }
}

void FrameBoundaries::endFrame()
{
    m_ended[m_endedCount++] = {m_sequence++, m_frame};
    m_frame = {};
}

} // namespace usbguards
