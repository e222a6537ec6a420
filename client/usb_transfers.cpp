#include "client/usb_transfers.h"

#include <algorithm>

namespace zrn
{
namespace
{

constexpr std::int64_t transfersInFlight = 100;
constexpr std::int64_t mostPacketsPerTransfer = 32;
constexpr std::int64_t payloadHeaderBytes = 12;

constexpr double highSpeedMegabits = 480;
constexpr double intervalsPerSecond = 1e7;     ///< of 100 ns
constexpr std::int64_t framesPerSecond = 1000; ///< of the bus at full speed
constexpr std::int64_t microframesPerSecond = 8000;
// Bytes per second that bulk transfers reach in practice.
constexpr std::int64_t highSpeedBulk = 40'000'000;
constexpr std::int64_t fullSpeedBulk = 1'000'000;

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
    std::int64_t doubleWord(std::size_t offset) const
    {
        return word(offset) | std::int64_t{word(offset + 2)} << 16;
    }
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

// In a frame's descriptor, in 100 ns.
constexpr std::size_t defaultInterval = 21;
constexpr std::size_t listLength = 25;
constexpr std::size_t intervals = 26;

/// Of a frame's descriptor, in 100 ns: the default one or one of the list; 0 if it tells none.
std::int64_t shortestInterval(const Descriptor& frame)
{
    std::int64_t shortest = frame.doubleWord(defaultInterval);
    // A length of 0 is a range, which begins with the shortest one.
    const int length = std::max(1, frame.byte(listLength));
    for (int i = 0; i < length; ++i) {
        const std::int64_t interval = frame.doubleWord(intervals + 4 * static_cast<std::size_t>(i));
        shortest = shortest == 0 || (interval > 0 && interval < shortest) ? interval : shortest;
    }
    return shortest;
}

/// The video stream that a camera's descriptors show.
struct VideoStream {
    int width = 0; ///< of the largest frame
    int height = 0;
    std::int64_t frameBytes = 0;       ///< of the largest frame; 0: none
    std::int64_t shortestInterval = 0; ///< between two of these frames, in 100 ns; 0: not told
    std::int64_t packetBytes = 0;      ///< of the largest isochronous packet; 0: bulk
};

VideoStream videoStreamOf(std::string_view descriptors)
{
    VideoStream stream;
    bool inVideoStream = false;
    int bitsPerPixel = 0;
    visitDescriptors(descriptors, [&](const Descriptor& descriptor) {
        if (descriptor.type() == interfaceDescriptor) {
            inVideoStream = descriptor.isVideoStream();
        } else if (!inVideoStream) {
            return true;
        } else if (descriptor.type() == endpointDescriptor) {
            if ((descriptor.byte(3) & transferTypeMask) == isochronous) {
                stream.packetBytes = std::max(stream.packetBytes, packetBytes(descriptor));
            }
        } else if (descriptor.type() == classInterfaceDescriptor) {
            if (descriptor.byte(2) == uncompressedFormat) {
                bitsPerPixel = descriptor.byte(21);
            } else if (descriptor.byte(2) == uncompressedFrame) {
                const int width = descriptor.word(5);
                const int height = descriptor.word(7);
                const std::int64_t bytes = std::int64_t{width} * height * bitsPerPixel / 8;
                if (bytes > stream.frameBytes) {
                    stream.width = width;
                    stream.height = height;
                    stream.frameBytes = bytes;
                    stream.shortestInterval = shortestInterval(descriptor);
                }
            }
        }
        return true;
    });
    return stream;
}

} // namespace

TransferMemory transferMemory(std::string_view descriptors,
                              std::optional<std::int64_t> payloadBytes)
{
    const VideoStream stream = videoStreamOf(descriptors);
    if (stream.frameBytes == 0) {
        return {};
    }
    if (stream.packetBytes > 0) {
        const std::int64_t packets =
            (stream.frameBytes + stream.packetBytes - 1) / stream.packetBytes;
        return {transfersInFlight * stream.packetBytes * std::min(packets, mostPacketsPerTransfer),
                SizeBasis::Descriptors};
    }
    if (payloadBytes) {
        return {transfersInFlight * *payloadBytes, SizeBasis::Camera};
    }
    return {transfersInFlight * (stream.frameBytes + payloadHeaderBytes), SizeBasis::FrameSize};
}

std::optional<LinkRate> linkRate(std::string_view descriptors, double megabits)
{
    const VideoStream stream = videoStreamOf(descriptors);
    if (stream.frameBytes == 0 || stream.shortestInterval == 0 || megabits <= 0 ||
        megabits > highSpeedMegabits) {
        return std::nullopt;
    }
    const bool isHighSpeed = megabits == highSpeedMegabits;
    const std::int64_t busFrames = isHighSpeed ? microframesPerSecond : framesPerSecond;
    const std::int64_t bytesPerSecond = stream.packetBytes > 0 ? stream.packetBytes * busFrames
                                        : isHighSpeed          ? highSpeedBulk
                                                               : fullSpeedBulk;
    return LinkRate{stream.width, stream.height,
                    intervalsPerSecond / static_cast<double>(stream.shortestInterval),
                    static_cast<double>(bytesPerSecond) / static_cast<double>(stream.frameBytes)};
}

std::chrono::nanoseconds nominalPeriod(std::string_view descriptors)
{
    std::chrono::nanoseconds period{};
    visitDescriptors(descriptors, [&period](const Descriptor& descriptor) {
        constexpr std::chrono::nanoseconds unit(100);
        const bool isFrame = descriptor.type() == classInterfaceDescriptor &&
                             descriptor.byte(2) == uncompressedFrame;
        period = isFrame ? descriptor.doubleWord(intervals) * unit : period;
        return period.count() == 0;
    });
    return period;
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
    const std::int64_t bytes = block.doubleWord(payloadSizeOffset);
    return bytes == 0 ? std::nullopt : std::optional(bytes);
}

} // namespace zrn
