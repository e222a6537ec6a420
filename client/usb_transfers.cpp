#include "client/usb_transfers.h"

#include <algorithm>

namespace zrn
{
namespace
{

constexpr std::int64_t transfersInFlight = 100;
constexpr std::int64_t mostPacketsPerTransfer = 32;
constexpr std::int64_t payloadHeaderBytes = 12;

// Descriptor types and subtypes of USB 2.0 and of USB Video Class 1.x.
constexpr int interfaceDescriptor = 0x04;
constexpr int endpointDescriptor = 0x05;
constexpr int classInterfaceDescriptor = 0x24;
constexpr int videoClass = 0x0e;
constexpr int videoStreaming = 0x02;
constexpr int uncompressedFormat = 0x04;
constexpr int uncompressedFrame = 0x05;
constexpr int transferTypeMask = 0x03;
constexpr int isochronous = 0x01;
constexpr std::size_t payloadSizeOffset = 22; ///< in the block of the probe control

/// One descriptor, read with bounds: bytes beyond its end are zero.
class Descriptor
{
public:
    explicit Descriptor(std::string_view bytes)
        : m_bytes(bytes)
    {
    }

    int byte(std::size_t offset) const
    {
        return offset < m_bytes.size() ? static_cast<std::uint8_t>(m_bytes[offset]) : 0;
    }
    int word(std::size_t offset) const { return byte(offset) | byte(offset + 1) << 8; }
    int type() const { return byte(1); }
    bool isVideoStream() const
    {
        return type() == interfaceDescriptor && byte(5) == videoClass && byte(6) == videoStreaming;
    }

private:
    std::string_view m_bytes;
};

/// Calls visit with each descriptor until it returns false or the bytes make no sense any more.
template <typename Visit>
void visitDescriptors(std::string_view descriptors, Visit visit)
{
    while (descriptors.size() >= 2) {
        const std::size_t length = static_cast<std::uint8_t>(descriptors.front());
        if (length < 2 || !visit(Descriptor(descriptors.substr(0, length)))) {
            return;
        }
        descriptors.remove_prefix(std::min(length, descriptors.size()));
    }
}

/// Bytes that one service interval carries: packet size times packets for each microframe.
std::int64_t packetBytes(const Descriptor& endpoint)
{
    const int size = endpoint.word(4);
    return std::int64_t{size & 0x7ff} * (1 + ((size >> 11) & 3));
}

} // namespace

TransferMemory transferMemory(std::string_view descriptors,
                              std::optional<std::int64_t> payloadBytes)
{
    bool inVideoStream = false;
    int bitsPerPixel = 0;
    std::int64_t largestFrame = 0;
    std::int64_t largestPacket = 0;
    visitDescriptors(descriptors, [&](const Descriptor& descriptor) {
        if (descriptor.type() == interfaceDescriptor) {
            inVideoStream = descriptor.isVideoStream();
        } else if (!inVideoStream) {
            return true;
        } else if (descriptor.type() == endpointDescriptor) {
            if ((descriptor.byte(3) & transferTypeMask) == isochronous) {
                largestPacket = std::max(largestPacket, packetBytes(descriptor));
            }
        } else if (descriptor.type() == classInterfaceDescriptor) {
            if (descriptor.byte(2) == uncompressedFormat) {
                bitsPerPixel = descriptor.byte(21);
            } else if (descriptor.byte(2) == uncompressedFrame) {
                const std::int64_t pixels = std::int64_t{descriptor.word(5)} * descriptor.word(7);
                largestFrame = std::max(largestFrame, pixels * bitsPerPixel / 8);
            }
        }
        return true;
    });
    if (largestFrame == 0) {
        return {};
    }
    if (largestPacket > 0) {
        const std::int64_t packets = (largestFrame + largestPacket - 1) / largestPacket;
        return {transfersInFlight * largestPacket * std::min(packets, mostPacketsPerTransfer),
                SizeBasis::Descriptors};
    }
    if (payloadBytes) {
        return {transfersInFlight * *payloadBytes, SizeBasis::Camera};
    }
    return {transfersInFlight * (largestFrame + payloadHeaderBytes), SizeBasis::FrameSize};
}

std::optional<std::uint8_t> videoStreamInterface(std::string_view descriptors)
{
    std::optional<std::uint8_t> number;
    visitDescriptors(descriptors, [&number](const Descriptor& descriptor) {
        if (descriptor.isVideoStream()) {
            number = static_cast<std::uint8_t>(descriptor.byte(2));
        }
        return !number;
    });
    return number;
}

std::optional<std::int64_t> payloadBytesOf(std::string_view probeBlock)
{
    if (probeBlock.size() < probeBlockBytes) {
        return std::nullopt;
    }
    const Descriptor block(probeBlock);
    const std::int64_t bytes =
        block.word(payloadSizeOffset) | std::int64_t{block.word(payloadSizeOffset + 2)} << 16;
    return bytes == 0 ? std::nullopt : std::optional(bytes);
}

} // namespace zrn
