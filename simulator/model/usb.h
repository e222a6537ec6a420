#pragma once

#include <cstdint>
#include <span>
#include <vector>

/// Numbers and small types of the USB 2.0/3.2 and USB Video Class 1.1 standards.
namespace zrnsim
{

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

/// The eight bytes that open every control transfer, in host byte order.
struct SetupPacket {
    std::uint8_t requestType = 0;
    std::uint8_t request = 0;
    std::uint16_t value = 0;
    std::uint16_t index = 0;
    std::uint16_t length = 0;

    bool isDeviceToHost() const { return (requestType & 0x80U) != 0; }
    std::uint8_t type() const { return requestType & 0x60U; }
    std::uint8_t recipient() const { return requestType & 0x1fU; }
    std::uint8_t valueHigh() const { return static_cast<std::uint8_t>(value >> 8U); }
    std::uint8_t valueLow() const { return static_cast<std::uint8_t>(value & 0xffU); }
    std::uint8_t indexHigh() const { return static_cast<std::uint8_t>(index >> 8U); }
    std::uint8_t indexLow() const { return static_cast<std::uint8_t>(index & 0xffU); }
};

namespace usb
{
inline constexpr std::uint8_t typeStandard = 0x00;
inline constexpr std::uint8_t typeClass = 0x20;

inline constexpr std::uint8_t recipientDevice = 0;
inline constexpr std::uint8_t recipientInterface = 1;
inline constexpr std::uint8_t recipientEndpoint = 2;

inline constexpr std::uint8_t getStatus = 0x00;
inline constexpr std::uint8_t clearFeature = 0x01;
inline constexpr std::uint8_t setFeature = 0x03;
inline constexpr std::uint8_t getDescriptor = 0x06;
inline constexpr std::uint8_t getConfiguration = 0x08;
inline constexpr std::uint8_t setConfiguration = 0x09;
inline constexpr std::uint8_t getInterface = 0x0a;
inline constexpr std::uint8_t setInterface = 0x0b;
inline constexpr std::uint8_t setSel = 0x30;
inline constexpr std::uint8_t setIsochronousDelay = 0x31;

inline constexpr std::uint16_t featureEndpointHalt = 0;
inline constexpr std::uint16_t featureU1Enable = 48;
inline constexpr std::uint16_t featureU2Enable = 49;

inline constexpr std::uint8_t descriptorDevice = 0x01;
inline constexpr std::uint8_t descriptorConfiguration = 0x02;
inline constexpr std::uint8_t descriptorString = 0x03;
inline constexpr std::uint8_t descriptorInterface = 0x04;
inline constexpr std::uint8_t descriptorEndpoint = 0x05;
inline constexpr std::uint8_t descriptorDeviceQualifier = 0x06;
inline constexpr std::uint8_t descriptorInterfaceAssociation = 0x0b;
inline constexpr std::uint8_t descriptorBos = 0x0f;
inline constexpr std::uint8_t descriptorDeviceCapability = 0x10;
inline constexpr std::uint8_t descriptorClassInterface = 0x24;
inline constexpr std::uint8_t descriptorSuperSpeedCompanion = 0x30;

inline constexpr std::uint16_t langEnglishUs = 0x0409;
} // namespace usb

namespace uvc
{
inline constexpr std::uint8_t setCur = 0x01;
inline constexpr std::uint8_t getCur = 0x81;
inline constexpr std::uint8_t getMin = 0x82;
inline constexpr std::uint8_t getMax = 0x83;
inline constexpr std::uint8_t getRes = 0x84;
inline constexpr std::uint8_t getLen = 0x85;
inline constexpr std::uint8_t getInfo = 0x86;
inline constexpr std::uint8_t getDef = 0x87;

/// Bits of the answer to GET_INFO.
inline constexpr std::uint8_t infoGet = 0x01;
inline constexpr std::uint8_t infoSet = 0x02;

inline constexpr std::uint8_t vcRequestErrorCode = 0x02;
inline constexpr std::uint8_t vsProbe = 0x01;
inline constexpr std::uint8_t vsCommit = 0x02;
inline constexpr std::uint8_t vsStreamErrorCode = 0x06;

/// Values of the request error code control: why the last request was stalled.
enum class RequestError : std::uint8_t {
    None = 0x00,
    OutOfRange = 0x04,
    InvalidUnit = 0x05,
    InvalidControl = 0x06,
    InvalidRequest = 0x07,
};

/// Bits of the second byte of a payload header.
inline constexpr std::uint8_t headerFrameId = 0x01;
inline constexpr std::uint8_t headerEndOfFrame = 0x02;
inline constexpr std::uint8_t headerPresentationTime = 0x04;
inline constexpr std::uint8_t headerSourceClock = 0x08;
inline constexpr std::uint8_t headerError = 0x40;
inline constexpr std::uint8_t headerEndOfHeader = 0x80;
} // namespace uvc

/// Numbers that the descriptors of every virtual camera share.
namespace topology
{
inline constexpr std::uint8_t configuration = 1;
inline constexpr std::uint8_t controlInterface = 0;
inline constexpr std::uint8_t streamingInterface = 1;
inline constexpr std::uint8_t streamingEndpoint = 0x81;
inline constexpr std::uint8_t cameraTerminal = 1;
inline constexpr std::uint8_t processingUnit = 2;
inline constexpr std::uint8_t outputTerminal = 3;
inline constexpr std::uint32_t clockFrequency = 48'000'000;
} // namespace topology

/// Appends little-endian numbers to a descriptor or a control block.
class ByteWriter
{
public:
    explicit ByteWriter(Bytes& target)
        : m_target(target)
    {
    }

    ByteWriter& u8(std::uint32_t value)
    {
        m_target.push_back(static_cast<std::uint8_t>(value & 0xffU));
        return *this;
    }
    ByteWriter& u16(std::uint32_t value) { return u8(value).u8(value >> 8U); }
    ByteWriter& u32(std::uint32_t value) { return u16(value).u16(value >> 16U); }
    ByteWriter& bytes(ByteView values)
    {
        m_target.insert(m_target.end(), values.begin(), values.end());
        return *this;
    }

private:
    Bytes& m_target;
};

/// Little-endian number of `count` bytes at `offset`; bytes beyond the end count as zero.
inline std::uint32_t readLittleEndian(ByteView data, std::size_t offset, std::size_t count)
{
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < count && offset + i < data.size(); ++i) {
        value |= static_cast<std::uint32_t>(data[offset + i]) << (8 * i);
    }
    return value;
}

} // namespace zrnsim
