#include "model/descriptors.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

namespace zrnsim
{
namespace
{

/// One descriptor of the chain, with the interface that it belongs to.
struct Item {
    Bytes bytes;
    int interface = -1;
    int alternate = -1;

    std::uint8_t type() const { return bytes.at(1); }
    std::uint8_t subtype() const { return bytes.at(2); }
    std::uint32_t number(std::size_t offset, std::size_t count) const
    {
        return readLittleEndian(bytes, offset, count);
    }
};

/// Splits a configuration by the length bytes alone; a wrong length shows as a broken chain.
std::vector<Item> split(const Bytes& configuration)
{
    std::vector<Item> items;
    int interface = -1;
    int alternate = -1;
    for (std::size_t offset = 0; offset < configuration.size();) {
        const std::size_t length = configuration[offset];
        if (length < 2 || offset + length > configuration.size()) {
            ADD_FAILURE() << "descriptor chain breaks at " << offset;
            return items;
        }
        Item item;
        item.bytes.assign(configuration.begin() + static_cast<std::ptrdiff_t>(offset),
                          configuration.begin() + static_cast<std::ptrdiff_t>(offset + length));
        if (item.type() == usb::descriptorInterface) {
            interface = item.bytes.at(2);
            alternate = item.bytes.at(3);
        }
        item.interface = interface;
        item.alternate = alternate;
        items.push_back(item);
        offset += length;
    }
    return items;
}

std::vector<Item> ofType(const std::vector<Item>& items, std::uint8_t type, int interface = -1)
{
    std::vector<Item> result;
    std::copy_if(items.begin(), items.end(), std::back_inserter(result), [&](const Item& item) {
        return item.type() == type && (interface < 0 || item.interface == interface);
    });
    return result;
}

std::size_t bytesOf(const std::vector<Item>& items)
{
    std::size_t sum = 0;
    for (const Item& item : items) {
        sum += item.bytes.size();
    }
    return sum;
}

/// A camera with its descriptors, whole and split.
struct Described {
    std::string name;
    CameraConfig config;
    DescriptorSet set;
    std::vector<Item> items;
};

/// Every preset on every kind of bus.
std::vector<Described> allCameras()
{
    std::vector<Described> all;
    for (const CameraConfig& preset : cameraPresets()) {
        for (const char* const variant :
             {"", ",speed=high", ",pipe=iso", ",pipe=iso,speed=super", ",formats=yuy2+y800"}) {
            const std::string name = preset.model + variant;
            const CameraConfig config = parseCamera(name, 1);
            const DescriptorSet set = buildDescriptors(config);
            all.push_back({name, config, set, split(set.configuration)});
        }
    }
    return all;
}

TEST(Descriptors, DeviceDescriptorIsThatOfACompositeVideoDevice)
{
    for (const Described& camera : allCameras()) {
        SCOPED_TRACE(camera.name);
        const auto& config = camera.config;
        const auto& set = camera.set;
        const bool isSuper = config.speed == UsbSpeed::Super;
        ASSERT_EQ(set.device.size(), 18U);
        EXPECT_EQ(set.device[0], 18);
        EXPECT_EQ(set.device[1], usb::descriptorDevice);
        EXPECT_EQ(readLittleEndian(set.device, 2, 2), isSuper ? 0x0320U : 0x0200U);
        EXPECT_EQ(Bytes(set.device.begin() + 4, set.device.begin() + 7), (Bytes{0xef, 2, 1}));
        EXPECT_EQ(set.device[7], isSuper ? 9 : 64);
        EXPECT_EQ(readLittleEndian(set.device, 8, 2), 0x0483U);
        EXPECT_EQ(readLittleEndian(set.device, 10, 2), 0x5750U);
        EXPECT_EQ(set.device[17], 1);
    }
}

TEST(Descriptors, SpeedDecidesBetweenQualifierAndObjectStore)
{
    for (const Described& camera : allCameras()) {
        SCOPED_TRACE(camera.name);
        const auto& config = camera.config;
        const auto& set = camera.set;
        const bool isSuper = config.speed == UsbSpeed::Super;
        EXPECT_EQ(set.qualifier.empty(), isSuper);
        EXPECT_EQ(set.bos.empty(), !isSuper);
        if (isSuper) {
            EXPECT_EQ(readLittleEndian(set.bos, 2, 2), set.bos.size());
        } else {
            EXPECT_EQ(set.qualifier.size(), 10U);
        }
    }
}

TEST(Descriptors, TotalLengthsCoverWhatFollows)
{
    for (const Described& camera : allCameras()) {
        SCOPED_TRACE(camera.name);
        const auto& set = camera.set;
        const auto& items = camera.items;
        ASSERT_FALSE(items.empty());
        EXPECT_EQ(items[0].number(2, 2), set.configuration.size());
        EXPECT_EQ(items[0].bytes.at(4), 2);

        const auto control = ofType(items, usb::descriptorClassInterface, 0);
        ASSERT_FALSE(control.empty());
        EXPECT_EQ(control[0].number(5, 2), bytesOf(control));

        const auto streaming = ofType(items, usb::descriptorClassInterface, 1);
        ASSERT_FALSE(streaming.empty());
        EXPECT_EQ(streaming[0].number(4, 2), bytesOf(streaming));
    }
}

TEST(Descriptors, AssociationJoinsControlAndStreaming)
{
    for (const Described& camera : allCameras()) {
        SCOPED_TRACE(camera.name);
        const auto& items = camera.items;
        const auto associations = ofType(items, usb::descriptorInterfaceAssociation);
        ASSERT_EQ(associations.size(), 1U);
        EXPECT_EQ(associations[0].bytes.at(2), 0);
        EXPECT_EQ(associations[0].bytes.at(3), 2);
        EXPECT_EQ(associations[0].bytes.at(4), 0x0e);
        EXPECT_EQ(associations[0].bytes.at(5), 0x03);
    }
}

TEST(Descriptors, UnitsFormAChainFromSensorToHost)
{
    for (const Described& camera : allCameras()) {
        SCOPED_TRACE(camera.name);
        const auto& items = camera.items;
        const auto control = ofType(items, usb::descriptorClassInterface, 0);
        ASSERT_EQ(control.size(), 4U);
        const Item& sensor = control[1];
        const Item& processing = control[2];
        const Item& output = control[3];
        EXPECT_EQ(sensor.subtype(), 2);
        EXPECT_EQ(sensor.number(4, 2), 0x0201U);
        EXPECT_EQ(sensor.bytes.size(), 15U + sensor.bytes.at(14));
        EXPECT_EQ(sensor.number(15, 3), 0x000002U); // exposure mode
        EXPECT_EQ(processing.subtype(), 5);
        EXPECT_EQ(processing.bytes.at(4), sensor.bytes.at(3));
        EXPECT_EQ(processing.bytes.size(), 10U + processing.bytes.at(7));
        EXPECT_EQ(processing.number(8, 3), 0x00033fU);
        EXPECT_EQ(output.subtype(), 3);
        EXPECT_EQ(output.number(4, 2), 0x0101U);
        EXPECT_EQ(output.bytes.at(7), processing.bytes.at(3));
        const auto streaming = ofType(items, usb::descriptorClassInterface, 1);
        EXPECT_EQ(streaming[0].bytes.at(8), output.bytes.at(3));
    }
}

TEST(Descriptors, EveryFormatListsEverySize)
{
    for (const Described& camera : allCameras()) {
        SCOPED_TRACE(camera.name);
        const auto& config = camera.config;
        const auto& items = camera.items;
        const auto streaming = ofType(items, usb::descriptorClassInterface, 1);
        const Item& header = streaming.at(0);
        EXPECT_EQ(header.bytes.at(3), config.formats.size());
        EXPECT_EQ(header.bytes.size(), 13 + config.formats.size());
        std::size_t next = 1;
        for (std::size_t format = 0; format < config.formats.size(); ++format) {
            const Item& descriptor = streaming.at(next++);
            const int bytes = bytesPerPosition(config.formats[format]);
            ASSERT_EQ(descriptor.bytes.size(), 27U);
            EXPECT_EQ(descriptor.subtype(), 4);
            EXPECT_EQ(descriptor.bytes.at(3), format + 1);
            EXPECT_EQ(descriptor.bytes.at(4), config.sizes.size());
            EXPECT_EQ(std::string(descriptor.bytes.begin() + 5, descriptor.bytes.begin() + 9),
                      bytes == 2 ? "YUY2" : "Y800");
            EXPECT_EQ(descriptor.bytes.at(21), 8 * bytes);
            EXPECT_EQ(descriptor.bytes.at(22), 1);
            for (std::size_t size = 0; size < config.sizes.size(); ++size) {
                const Item& frame = streaming.at(next++);
                const auto [width, height] = config.sizes[size];
                EXPECT_EQ(frame.subtype(), 5);
                EXPECT_EQ(frame.bytes.at(3), size + 1);
                EXPECT_EQ(frame.number(5, 2), width);
                EXPECT_EQ(frame.number(7, 2), height);
                EXPECT_EQ(frame.number(17, 4), static_cast<std::uint32_t>(width) * height *
                                                   static_cast<unsigned>(bytes));
                EXPECT_LT(frame.number(9, 4), frame.number(13, 4)); // bit rates
                EXPECT_EQ(frame.number(21, 4), 333333U);
                ASSERT_EQ(frame.bytes.at(25), config.frameRates.size());
                EXPECT_EQ(frame.bytes.size(), 26 + 4 * config.frameRates.size());
                EXPECT_EQ(frame.number(26, 4), 333333U);
                EXPECT_EQ(frame.number(30, 4), 166667U);
            }
        }
        EXPECT_EQ(next, streaming.size());
    }
}

TEST(Descriptors, BulkCamerasStreamInTheirOnlySetting)
{
    for (const Described& camera : allCameras()) {
        SCOPED_TRACE(camera.name);
        const auto& config = camera.config;
        const auto& items = camera.items;
        if (config.pipe != StreamPipe::Bulk) {
            continue;
        }
        const auto endpoints = ofType(items, usb::descriptorEndpoint);
        ASSERT_EQ(endpoints.size(), 1U);
        EXPECT_EQ(endpoints[0].alternate, 0);
        EXPECT_EQ(endpoints[0].bytes.at(2), 0x81);
        EXPECT_EQ(endpoints[0].bytes.at(3), 2);
        EXPECT_EQ(endpoints[0].number(4, 2), config.speed == UsbSpeed::Super ? 1024U : 512U);
        EXPECT_EQ(ofType(items, usb::descriptorInterface, 1).size(), 1U);
    }
}

TEST(Descriptors, IsochronousCamerasRestInSettingZeroAndGrow)
{
    for (const Described& camera : allCameras()) {
        SCOPED_TRACE(camera.name);
        const auto& config = camera.config;
        const auto& items = camera.items;
        if (config.pipe != StreamPipe::Isochronous) {
            continue;
        }
        const auto interfaces = ofType(items, usb::descriptorInterface, 1);
        const auto endpoints = ofType(items, usb::descriptorEndpoint);
        ASSERT_EQ(interfaces.size(), endpoints.size() + 1);
        EXPECT_EQ(interfaces.size(), alternateSettings(config));
        EXPECT_EQ(interfaces[0].bytes.at(4), 0);
        std::uint32_t before = 0;
        for (const Item& endpoint : endpoints) {
            EXPECT_EQ(endpoint.bytes.at(3), 5);
            const auto alternate = static_cast<std::uint8_t>(endpoint.alternate);
            const std::uint32_t capacity = endpointCapacity(config, alternate);
            EXPECT_GT(capacity, before);
            before = capacity;
            const std::uint32_t packet = endpoint.number(4, 2);
            if (config.speed == UsbSpeed::High) {
                EXPECT_GE((packet & 0x7ffU) * (1 + (packet >> 11U & 3U)), capacity);
                EXPECT_LE(packet & 0x7ffU, 1024U);
            }
        }
        EXPECT_EQ(before, config.payloadSize);
    }
}

TEST(Descriptors, SuperSpeedEndpointsHaveTheirCompanion)
{
    for (const Described& camera : allCameras()) {
        SCOPED_TRACE(camera.name);
        const auto& config = camera.config;
        const auto& items = camera.items;
        const auto companions = ofType(items, usb::descriptorSuperSpeedCompanion);
        if (config.speed != UsbSpeed::Super) {
            EXPECT_TRUE(companions.empty());
            continue;
        }
        EXPECT_EQ(companions.size(), ofType(items, usb::descriptorEndpoint).size());
        for (const Item& companion : companions) {
            ASSERT_EQ(companion.bytes.size(), 6U);
            EXPECT_LE(companion.bytes.at(2), 15);
            if (config.pipe == StreamPipe::Isochronous) {
                const auto alternate = static_cast<std::uint8_t>(companion.alternate);
                EXPECT_EQ(companion.number(4, 2), endpointCapacity(config, alternate));
                const unsigned packets =
                    (companion.bytes.at(2) + 1U) * ((companion.bytes.at(3) & 3U) + 1U);
                EXPECT_GE(packets * 1024, endpointCapacity(config, alternate));
            }
        }
    }
}

TEST(Descriptors, EveryStringIndexHasAString)
{
    for (const Described& camera : allCameras()) {
        SCOPED_TRACE(camera.name);
        const auto& config = camera.config;
        const auto& set = camera.set;
        for (const std::size_t offset : {14U, 15U, 16U}) {
            const Bytes string = stringDescriptor(set.strings, set.device[offset]);
            ASSERT_GE(string.size(), 4U);
            EXPECT_EQ(string[0], string.size());
            EXPECT_EQ(string[1], usb::descriptorString);
        }
        EXPECT_EQ(set.strings.at(2), std::to_string(config.serial));
        EXPECT_EQ(stringDescriptor(set.strings, 0), (Bytes{4, 3, 0x09, 0x04}));
        EXPECT_TRUE(stringDescriptor(set.strings, 9).empty());
    }
}

} // namespace
} // namespace zrnsim
