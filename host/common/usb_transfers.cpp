#include "common/usb_transfers.h"

#include <QtEndian>

#include <algorithm>

namespace zrnhost
{
namespace
{

constexpr qint64 transfersInFlight = 100;
constexpr qint64 mostPacketsPerTransfer = 32;
constexpr qint64 payloadHeaderBytes = 12;

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
constexpr int payloadSizeOffset = 22; ///< in the block of the probe control

/// One descriptor, read with bounds: bytes beyond its end are zero.
class Descriptor
{
public:
    Descriptor(const QByteArray& bytes, int begin, int length)
        : m_bytes(bytes)
        , m_begin(begin)
        , m_length(length)
    {
    }

    int byte(int offset) const
    {
        return offset < m_length ? static_cast<quint8>(m_bytes[m_begin + offset]) : 0;
    }
    int word(int offset) const { return byte(offset) | byte(offset + 1) << 8; }
    int type() const { return byte(1); }
    bool isVideoStream() const
    {
        return type() == interfaceDescriptor && byte(5) == videoClass && byte(6) == videoStreaming;
    }

private:
    const QByteArray& m_bytes;
    int m_begin;
    int m_length;
};

/// Calls visit with each descriptor until it returns false or the bytes make no sense any more.
template <typename Visit>
void visitDescriptors(const QByteArray& descriptors, Visit visit)
{
    for (int begin = 0; begin + 2 <= descriptors.size();) {
        const int length = static_cast<quint8>(descriptors[begin]);
        if (length < 2 ||
            !visit(Descriptor(descriptors, begin, std::min(length, descriptors.size() - begin)))) {
            return;
        }
        begin += length;
    }
}

/// Bytes that one service interval carries: packet size times packets for each microframe.
qint64 packetBytes(const Descriptor& endpoint)
{
    const int size = endpoint.word(4);
    return qint64{size & 0x7ff} * (1 + ((size >> 11) & 3));
}

} // namespace

TransferMemory transferMemory(const QByteArray& descriptors, std::optional<qint64> payloadBytes)
{
    bool inVideoStream = false;
    int bitsPerPixel = 0;
    qint64 largestFrame = 0;
    qint64 largestPacket = 0;
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
                const qint64 pixels = qint64{descriptor.word(5)} * descriptor.word(7);
                largestFrame = std::max(largestFrame, pixels * bitsPerPixel / 8);
            }
        }
        return true;
    });
    if (largestFrame == 0) {
        return {};
    }
    if (largestPacket > 0) {
        const qint64 packets = (largestFrame + largestPacket - 1) / largestPacket;
        return {transfersInFlight * largestPacket * std::min(packets, mostPacketsPerTransfer),
                SizeBasis::Descriptors};
    }
    if (payloadBytes) {
        return {transfersInFlight * *payloadBytes, SizeBasis::Camera};
    }
    return {transfersInFlight * (largestFrame + payloadHeaderBytes), SizeBasis::FrameSize};
}

std::optional<quint8> videoStreamInterface(const QByteArray& descriptors)
{
    std::optional<quint8> number;
    visitDescriptors(descriptors, [&number](const Descriptor& descriptor) {
        if (descriptor.isVideoStream()) {
            number = static_cast<quint8>(descriptor.byte(2));
        }
        return !number;
    });
    return number;
}

std::optional<qint64> payloadBytesOf(const QByteArray& probeBlock)
{
    if (probeBlock.size() < probeBlockBytes) {
        return std::nullopt;
    }
    const auto bytes = qFromLittleEndian<quint32>(probeBlock.constData() + payloadSizeOffset);
    return bytes == 0 ? std::nullopt : std::optional<qint64>(bytes);
}

} // namespace zrnhost
