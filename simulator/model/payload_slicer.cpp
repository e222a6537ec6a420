#include "model/payload_slicer.h"

#include <algorithm>

namespace zrnsim
{

namespace
{

constexpr auto busFrame = std::chrono::milliseconds(1);

std::uint32_t clockValue(Clock::time_point time)
{
    const auto elapsed =
        std::chrono::duration_cast<std::chrono::nanoseconds>(time.time_since_epoch()).count();
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(elapsed) *
                                      (topology::clockFrequency / 1'000'000) / 1000);
}

std::uint16_t startOfFrame(Clock::time_point time)
{
    return static_cast<std::uint16_t>((time.time_since_epoch() / busFrame) & 0x7ff);
}

} // namespace

void PayloadSlicer::configure(std::uint32_t maxPayload, std::uint32_t packetSize)
{
    clear();
    m_maxPayload = maxPayload;
    m_packetSize = packetSize;
}

void PayloadSlicer::load(FramePtr frame)
{
    m_frame = std::move(frame);
    m_offset = 0;
    m_payloadIndex = 0;
    m_payloadsLost = 0;
    m_payloadOpen = false;
    m_frameId ^= uvc::headerFrameId;
}

void PayloadSlicer::clear()
{
    m_frame.reset();
    m_payloadOpen = false;
    m_zeroLengthDue = false;
}

std::size_t PayloadSlicer::bodyCapacity() const
{
    return m_maxPayload - PayloadPiece::headerSize;
}

void PayloadSlicer::skipLostPayloads()
{
    // From the second payload on and never the last, so that the frame still begins and ends.
    for (int lost = 0; lost < m_frame->fault.lostPayloads && m_payloadIndex == 1; ++lost) {
        if (m_offset + bodyCapacity() >= m_frame->bytes.size()) {
            return;
        }
        m_offset += bodyCapacity();
        ++m_payloadsLost;
    }
}

void PayloadSlicer::beginPayload()
{
    skipLostPayloads();
    const std::size_t size = m_frame->bytes.size();
    m_pieceOffset = m_offset;
    m_payloadEnd = std::min(size, m_offset + bodyCapacity());
    m_offset = m_payloadEnd;
    m_headerSent = 0;
    m_payloadSent = 0;
    m_payloadOpen = true;

    const FrameFault& fault = m_frame->fault;
    const auto now = Clock::now();
    std::uint8_t flags =
        uvc::headerPresentationTime | uvc::headerSourceClock | uvc::headerEndOfHeader | m_frameId;
    if (m_payloadEnd == size && !fault.withoutEndOfFrame) {
        flags |= uvc::headerEndOfFrame;
    }
    if (static_cast<int>(m_payloadIndex) < fault.errorPayloads) {
        flags |= uvc::headerError;
    }
    ++m_payloadIndex;

    Bytes header;
    ByteWriter(header)
        .u8(PayloadPiece::headerSize)
        .u8(flags)
        .u32(clockValue(m_frame->captured))
        .u32(clockValue(now))
        .u16(startOfFrame(now));
    std::copy(header.begin(), header.end(), m_header.begin());
}

std::optional<PayloadPiece> PayloadSlicer::next(std::size_t maxLength)
{
    if (m_zeroLengthDue) {
        m_zeroLengthDue = false;
        return PayloadPiece{};
    }
    if (!m_frame) {
        return std::nullopt;
    }
    PayloadPiece piece;
    if (!m_payloadOpen) {
        beginPayload();
        piece.startsPayload = true;
    }
    piece.headerStorage = m_header;
    piece.headerOffset = m_headerSent;
    piece.headerLength = std::min(PayloadPiece::headerSize - m_headerSent, maxLength);
    piece.frame = m_frame;
    piece.offset = m_pieceOffset;
    piece.length = std::min(m_payloadEnd - m_pieceOffset, maxLength - piece.headerLength);
    m_headerSent += piece.headerLength;
    m_pieceOffset += piece.length;
    m_payloadSent += piece.size();
    if (m_headerSent < PayloadPiece::headerSize || m_pieceOffset < m_payloadEnd) {
        return piece;
    }
    piece.endsPayload = true;
    m_payloadOpen = false;
    // The host sees the end of a payload by a short packet or by its largest size.
    m_zeroLengthDue = m_packetSize != 0 && piece.size() == maxLength &&
                      m_payloadSent < m_maxPayload && m_payloadSent % m_packetSize == 0;
    if (m_payloadEnd == m_frame->bytes.size()) {
        piece.endsFrame = true;
        piece.payloadsLost = m_payloadsLost;
        m_frame.reset();
    }
    return piece;
}

} // namespace zrnsim
