#pragma once

#include "model/frame.h"

#include <array>
#include <cstdint>
#include <optional>

namespace zrnsim
{

/// Part of a payload for one transfer (bulk) or packet (isochronous): what is left of the payload
/// header, then bytes of the frame. Both may be empty: a zero-length packet.
struct PayloadPiece {
    static constexpr std::size_t headerSize = 12;

    std::array<std::uint8_t, headerSize> headerStorage{};
    std::size_t headerOffset = 0;
    std::size_t headerLength = 0;
    FramePtr frame;
    std::size_t offset = 0;
    std::size_t length = 0;
    bool startsPayload = false;
    bool endsPayload = false;
    bool endsFrame = false;
    std::uint32_t payloadsLost = 0;            ///< left out of the frame, said with its last piece
    std::optional<std::uint64_t> startedFrame; ///< index of the sent frame that begins with it

    ByteView header() const { return ByteView(headerStorage).subspan(headerOffset, headerLength); }
    ByteView body() const
    {
        return length == 0 ? ByteView() : ByteView(frame->bytes).subspan(offset, length);
    }
    std::size_t size() const { return headerLength + length; }
};

/// Cuts a frame into UVC payloads and payloads into transfers. Not synchronised.
///
/// Invariant: while a frame is loaded, `m_offset` is its first byte that no payload has covered
/// yet, and [m_pieceOffset, m_payloadEnd) is what the current payload still has to send.
class PayloadSlicer
{
public:
    /// @param maxPayload dwMaxPayloadTransferSize
    /// @param packetSize wMaxPacketSize of a bulk endpoint, which needs a zero-length packet after
    ///        a payload that ends on a packet boundary; 0 for isochronous endpoints.
    void configure(std::uint32_t maxPayload, std::uint32_t packetSize);

    /// Whether everything loaded has been sent.
    bool isIdle() const { return m_frame == nullptr && !m_zeroLengthDue; }
    /// Whether a frame is under way.
    bool hasFrame() const { return m_frame != nullptr; }
    void load(FramePtr frame);

    /// Drops what is under way.
    void clear();

    /// Next piece of at most `maxLength` bytes; nothing when no frame is loaded.
    std::optional<PayloadPiece> next(std::size_t maxLength);

private:
    void beginPayload();
    void skipLostPayloads();
    std::size_t bodyCapacity() const;

    std::uint32_t m_maxPayload = 0;
    std::uint32_t m_packetSize = 0;
    FramePtr m_frame;
    std::size_t m_offset = 0;
    std::size_t m_pieceOffset = 0;
    std::size_t m_payloadEnd = 0;
    std::size_t m_headerSent = 0;
    std::size_t m_payloadSent = 0;
    std::uint32_t m_payloadIndex = 0;
    std::uint32_t m_payloadsLost = 0;
    bool m_payloadOpen = false;
    bool m_zeroLengthDue = false;
    std::uint8_t m_frameId = 1; // toggled before the first frame
    std::array<std::uint8_t, PayloadPiece::headerSize> m_header{};
};

} // namespace zrnsim
