#include "model/descriptors.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace zrnsim
{

namespace
{

constexpr std::uint16_t videoClassVersion = 0x0110;
constexpr std::uint8_t classVideo = 0x0e;
constexpr std::uint8_t subclassControl = 0x01;
constexpr std::uint8_t subclassStreaming = 0x02;
constexpr std::uint8_t subclassCollection = 0x03;

constexpr std::uint16_t terminalCamera = 0x0201;
constexpr std::uint16_t terminalStreaming = 0x0101;

// Subtypes of class-specific interface descriptors.
constexpr std::uint8_t vcHeader = 0x01;
constexpr std::uint8_t vcInputTerminal = 0x02;
constexpr std::uint8_t vcOutputTerminal = 0x03;
constexpr std::uint8_t vcProcessingUnit = 0x05;
constexpr std::uint8_t vsInputHeader = 0x01;
constexpr std::uint8_t vsFormatUncompressed = 0x04;
constexpr std::uint8_t vsFrameUncompressed = 0x05;

constexpr std::uint8_t endpointIsochronousAsync = 0x05;
constexpr std::uint8_t endpointBulk = 0x02;

constexpr std::uint16_t bulkPacketHigh = 512;
constexpr std::uint16_t packetSuper = 1024;
constexpr std::uint32_t highSpeedPacket = 1024;
constexpr std::uint32_t superSpeedBurst = 16;

enum StringIndex : std::uint8_t { Manufacturer = 1, Product, Serial };

constexpr std::array<std::uint8_t, 12> guidTail{0x00, 0x00, 0x10, 0x00, 0x80, 0x00,
                                                0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71};

constexpr std::array<std::uint8_t, 4> fourCc(PixelPacking packing)
{
    return packing == PixelPacking::Yuy2 ? std::array<std::uint8_t, 4>{'Y', 'U', 'Y', '2'}
                                         : std::array<std::uint8_t, 4>{'Y', '8', '0', '0'};
}

/// bmControls of one entity.
std::uint32_t controlBits(std::uint8_t entity)
{
    std::uint32_t bits = 0;
    for (const ControlTraits& traits : controlTable) {
        if (traits.entity == entity) {
            bits |= 1U << traits.descriptorBit;
        }
    }
    return bits;
}

Bytes deviceDescriptor(const CameraConfig& config)
{
    Bytes data;
    ByteWriter writer(data);
    const bool isSuper = config.speed == UsbSpeed::Super;
    writer.u8(18).u8(usb::descriptorDevice).u16(isSuper ? 0x0320 : 0x0200);
    writer.u8(0xef).u8(0x02).u8(0x01); // multi-function device with interface associations
    writer.u8(isSuper ? 9 : 64);       // the exponent of 512, or bytes
    writer.u16(config.vendorId).u16(config.productId).u16(0x0100);
    writer.u8(Manufacturer).u8(Product).u8(Serial).u8(1);
    return data;
}

Bytes qualifierDescriptor()
{
    Bytes data;
    ByteWriter writer(data);
    writer.u8(10).u8(usb::descriptorDeviceQualifier).u16(0x0200);
    writer.u8(0xef).u8(0x02).u8(0x01).u8(64).u8(1).u8(0);
    return data;
}

Bytes bosDescriptor()
{
    constexpr std::uint8_t capabilityUsb2Extension = 0x02;
    constexpr std::uint8_t capabilitySuperSpeed = 0x03;
    Bytes data;
    ByteWriter writer(data);
    writer.u8(5).u8(usb::descriptorBos).u16(22).u8(2);
    writer.u8(7).u8(usb::descriptorDeviceCapability).u8(capabilityUsb2Extension).u32(0x00000002);
    writer.u8(10).u8(usb::descriptorDeviceCapability).u8(capabilitySuperSpeed);
    writer.u8(0);           // no latency tolerance messages
    writer.u16(0x000c);     // high speed and 5 Gbit/s
    writer.u8(2);           // all functions from high speed on
    writer.u8(10).u16(512); // exit latencies from U1 and U2 in us
    return data;
}

/// Control interface: camera terminal, processing unit, output terminal.
Bytes controlInterface()
{
    Bytes units;
    ByteWriter unit(units);
    unit.u8(18).u8(usb::descriptorClassInterface).u8(vcInputTerminal);
    unit.u8(topology::cameraTerminal).u16(terminalCamera).u8(0).u8(0);
    unit.u16(0).u16(0).u16(0); // no optical zoom
    const std::uint32_t cameraBits = controlBits(topology::cameraTerminal);
    unit.u8(3).u16(cameraBits).u8(cameraBits >> 16U);

    unit.u8(13).u8(usb::descriptorClassInterface).u8(vcProcessingUnit);
    unit.u8(topology::processingUnit).u8(topology::cameraTerminal).u16(0);
    const std::uint32_t processingBits = controlBits(topology::processingUnit);
    unit.u8(3).u16(processingBits).u8(processingBits >> 16U).u8(0).u8(0); // no analogue standards

    unit.u8(9).u8(usb::descriptorClassInterface).u8(vcOutputTerminal);
    unit.u8(topology::outputTerminal).u16(terminalStreaming).u8(0);
    unit.u8(topology::processingUnit).u8(0);

    Bytes data;
    ByteWriter writer(data);
    writer.u8(9).u8(usb::descriptorInterface).u8(topology::controlInterface).u8(0).u8(0);
    writer.u8(classVideo).u8(subclassControl).u8(0).u8(Product);
    writer.u8(13).u8(usb::descriptorClassInterface).u8(vcHeader).u16(videoClassVersion);
    writer.u16(static_cast<std::uint32_t>(13 + units.size())).u32(topology::clockFrequency);
    writer.u8(1).u8(topology::streamingInterface);
    writer.bytes(units);
    return data;
}

void appendFrame(ByteWriter& writer, const CameraConfig& config, std::uint32_t index,
                 PixelPacking packing)
{
    const FrameSize size = config.sizes[index];
    const std::uint32_t bytes = frameBytes(size, packing);
    const auto [slowest, fastest] =
        std::minmax_element(config.frameRates.begin(), config.frameRates.end());
    const auto bitRate = [bytes](double rate) {
        return static_cast<std::uint32_t>(std::min(8.0 * bytes * rate, 4294967295.0));
    };
    const auto rates = static_cast<std::uint32_t>(config.frameRates.size());
    writer.u8(26 + 4 * rates).u8(usb::descriptorClassInterface).u8(vsFrameUncompressed);
    writer.u8(index + 1).u8(0).u16(size.width).u16(size.height);
    writer.u32(bitRate(*slowest)).u32(bitRate(*fastest)).u32(bytes);
    writer.u32(frameInterval(config.frameRates.front())).u8(rates);
    for (const double rate : config.frameRates) {
        writer.u32(frameInterval(rate));
    }
}

/// Class-specific part of the streaming interface.
Bytes streamingFormats(const CameraConfig& config)
{
    Bytes formats;
    ByteWriter writer(formats);
    std::uint32_t formatIndex = 0;
    for (const PixelPacking packing : config.formats) {
        writer.u8(27).u8(usb::descriptorClassInterface).u8(vsFormatUncompressed);
        writer.u8(++formatIndex).u8(static_cast<std::uint32_t>(config.sizes.size()));
        writer.bytes(fourCc(packing)).bytes(guidTail);
        writer.u8(static_cast<std::uint32_t>(8 * bytesPerPosition(packing)));
        writer.u8(1).u8(0).u8(0).u8(0).u8(0);
        for (std::uint32_t i = 0; i < config.sizes.size(); ++i) {
            appendFrame(writer, config, i, packing);
        }
    }
    const auto count = static_cast<std::uint32_t>(config.formats.size());
    Bytes data;
    ByteWriter header(data);
    header.u8(13 + count).u8(usb::descriptorClassInterface).u8(vsInputHeader).u8(count);
    header.u16(static_cast<std::uint32_t>(13 + count + formats.size()));
    header.u8(topology::streamingEndpoint).u8(0).u8(topology::outputTerminal);
    header.u8(0).u8(0).u8(0).u8(1); // no still images, no trigger, one byte for each format
    for (std::uint32_t i = 0; i < count; ++i) {
        header.u8(0);
    }
    header.bytes(formats);
    return data;
}

void appendStreamingInterface(ByteWriter& writer, std::uint8_t alternate, std::uint8_t endpoints)
{
    writer.u8(9).u8(usb::descriptorInterface).u8(topology::streamingInterface).u8(alternate);
    writer.u8(endpoints).u8(classVideo).u8(subclassStreaming).u8(0).u8(0);
}

void appendBulkEndpoint(ByteWriter& writer, const CameraConfig& config)
{
    const bool isSuper = config.speed == UsbSpeed::Super;
    writer.u8(7).u8(usb::descriptorEndpoint).u8(topology::streamingEndpoint).u8(endpointBulk);
    writer.u16(isSuper ? packetSuper : bulkPacketHigh).u8(0);
    if (isSuper) {
        writer.u8(6).u8(usb::descriptorSuperSpeedCompanion).u8(superSpeedBurst - 1).u8(0).u16(0);
    }
}

void appendIsochronousEndpoint(ByteWriter& writer, const CameraConfig& config,
                               std::uint32_t capacity)
{
    writer.u8(7).u8(usb::descriptorEndpoint).u8(topology::streamingEndpoint);
    writer.u8(endpointIsochronousAsync);
    if (config.speed == UsbSpeed::High) {
        const std::uint32_t transactions = (capacity + highSpeedPacket - 1) / highSpeedPacket;
        const std::uint32_t packet = (capacity + transactions - 1) / transactions;
        writer.u16(packet | (transactions - 1) << 11U).u8(1);
        return;
    }
    const std::uint32_t packets = (capacity + packetSuper - 1) / packetSuper;
    const std::uint32_t mult = (packets + superSpeedBurst - 1) / superSpeedBurst;
    const std::uint32_t burst = (packets + mult - 1) / mult;
    writer.u16(std::min<std::uint32_t>(capacity, packetSuper)).u8(1);
    writer.u8(6).u8(usb::descriptorSuperSpeedCompanion).u8(burst - 1).u8(mult - 1).u16(capacity);
}

/// Capacities of the alternate settings 1.. of an isochronous streaming interface.
std::vector<std::uint32_t> isochronousCapacities(const CameraConfig& config)
{
    std::vector<std::uint32_t> capacities;
    for (const std::uint32_t step : {1024U, 2048U, 8192U}) {
        if (step < config.payloadSize) {
            capacities.push_back(step);
        }
    }
    capacities.push_back(config.payloadSize);
    return capacities;
}

Bytes streamingInterface(const CameraConfig& config)
{
    Bytes data;
    ByteWriter writer(data);
    if (config.pipe == StreamPipe::Bulk) {
        appendStreamingInterface(writer, 0, 1);
        writer.bytes(streamingFormats(config));
        appendBulkEndpoint(writer, config);
        return data;
    }
    appendStreamingInterface(writer, 0, 0);
    writer.bytes(streamingFormats(config));
    std::uint8_t alternate = 0;
    for (const std::uint32_t capacity : isochronousCapacities(config)) {
        appendStreamingInterface(writer, ++alternate, 1);
        appendIsochronousEndpoint(writer, config, capacity);
    }
    return data;
}

Bytes configurationDescriptor(const CameraConfig& config)
{
    const Bytes control = controlInterface();
    const Bytes streaming = streamingInterface(config);
    const bool isSuper = config.speed == UsbSpeed::Super;
    Bytes data;
    ByteWriter writer(data);
    writer.u8(9).u8(usb::descriptorConfiguration);
    writer.u16(static_cast<std::uint32_t>(9 + 8 + control.size() + streaming.size()));
    writer.u8(2).u8(topology::configuration).u8(0);
    writer.u8(0x80).u8(isSuper ? 896 / 8 : 500 / 2); // bus powered
    writer.u8(8).u8(usb::descriptorInterfaceAssociation).u8(topology::controlInterface).u8(2);
    writer.u8(classVideo).u8(subclassCollection).u8(0).u8(Product);
    writer.bytes(control).bytes(streaming);
    return data;
}

} // namespace

DescriptorSet buildDescriptors(const CameraConfig& config)
{
    DescriptorSet set;
    set.device = deviceDescriptor(config);
    set.configuration = configurationDescriptor(config);
    if (config.speed == UsbSpeed::Super) {
        set.bos = bosDescriptor();
    } else {
        set.qualifier = qualifierDescriptor();
    }
    set.strings = {"ZRN", "ZRN camera " + config.model, std::to_string(config.serial)};
    return set;
}

Bytes stringDescriptor(const std::vector<std::string>& strings, std::uint8_t index)
{
    Bytes data;
    ByteWriter writer(data);
    if (index == 0) {
        writer.u8(4).u8(usb::descriptorString).u16(usb::langEnglishUs);
        return data;
    }
    if (index > strings.size()) {
        return data;
    }
    const std::string& text = strings[index - 1U];
    writer.u8(static_cast<std::uint32_t>(2 + 2 * text.size())).u8(usb::descriptorString);
    for (const char character : text) {
        writer.u16(static_cast<std::uint8_t>(character));
    }
    return data;
}

std::uint32_t frameInterval(double framesPerSecond)
{
    return static_cast<std::uint32_t>(std::lround(10'000'000.0 / framesPerSecond));
}

std::uint32_t endpointCapacity(const CameraConfig& config, std::uint8_t alternateSetting)
{
    if (config.pipe == StreamPipe::Bulk) {
        return config.speed == UsbSpeed::Super ? packetSuper : bulkPacketHigh;
    }
    const auto capacities = isochronousCapacities(config);
    return alternateSetting >= 1 && alternateSetting <= capacities.size()
               ? capacities[alternateSetting - 1U]
               : 0;
}

std::uint8_t alternateSettings(const CameraConfig& config)
{
    return config.pipe == StreamPipe::Bulk
               ? 1
               : static_cast<std::uint8_t>(1 + isochronousCapacities(config).size());
}

std::uint32_t frameBytes(FrameSize size, PixelPacking packing)
{
    return static_cast<std::uint32_t>(size.width) * size.height *
           static_cast<std::uint32_t>(bytesPerPosition(packing));
}

} // namespace zrnsim
