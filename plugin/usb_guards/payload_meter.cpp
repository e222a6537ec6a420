#include "payload_meter.h"

namespace usbguards
{

bool PayloadMeter::accept(const PayloadHeader& header, std::size_t capacity)
{
    if (header.isIgnored) {
        return true;
    }
    if (header.hasInfo && header.announcedSize() > capacity) {
        return false;
    }

    const bool frameId = header.hasInfo ? header.frameId : m_frameId;
    const std::size_t collected = frameId == m_frameId ? m_collected : 0;
    if (header.dataSize > frameBufferSize - collected) {
        return false;
    }
    const bool endsFrame = header.dataSize > 0 && header.endsFrame;
    m_frameId = frameId;
    m_collected = endsFrame ? 0 : collected + header.dataSize;
    return true;
}

} // namespace usbguards
