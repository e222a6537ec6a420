#include "client/usb_transfers.h"

#include <gtest/gtest.h>

#include <initializer_list>

using namespace zrn;

namespace
{

/// Descriptors of a camera, put together one by one.
class Descriptors
{
public:
    Descriptors& add(std::initializer_list<int> body)
    {
        m_bytes.push_back(static_cast<char>(body.size() + 1));
        for (const int byte : body) {
            m_bytes.push_back(static_cast<char>(byte));
        }
        return *this;
    }
    Descriptors& addControlInterface() { return add({0x04, 0, 0, 1, 0x0e, 0x01, 0, 0}); }
    Descriptors& addStreamInterface(int number = 1)
    {
        return add({0x04, number, 0, 1, 0x0e, 0x02, 0, 0});
    }
    Descriptors& addFormat(int bits)
    {
        std::vector<int> body(26, 0);
        body[0] = 0x24;
        body[1] = 0x04;
        body[20] = bits;
        return addBytes(body);
    }
    Descriptors& addFrame(int width, int height, int interval = 0)
    {
        std::vector<int> body(29, 0);
        body[25] = interval & 0xff;
        body[26] = interval >> 8 & 0xff;
        body[27] = interval >> 16;
        body[0] = 0x24;
        body[1] = 0x05;
        body[4] = width & 0xff;
        body[5] = width >> 8;
        body[6] = height & 0xff;
        body[7] = height >> 8;
        return addBytes(body);
    }
    Descriptors& addEndpoint(int attributes, int packet)
    {
        return add({0x05, 0x81, attributes, packet & 0xff, packet >> 8, 1});
    }
    const std::string& bytes() const { return m_bytes; }

private:
    Descriptors& addBytes(const std::vector<int>& body)
    {
        m_bytes.push_back(static_cast<char>(body.size() + 1));
        for (const int byte : body) {
            m_bytes.push_back(static_cast<char>(byte));
        }
        return *this;
    }

    std::string m_bytes;
};

} // namespace

TEST(UsbTransfers, ThePeriodIsTheFirstOfTheFirstSize)
{
    Descriptors camera;
    camera.addControlInterface().add({0x24, 0x05, 2, 1, 0, 0, 2, 1, 1, 0, 0, 0}); // another unit
    camera.addStreamInterface().addFormat(16);
    camera.addFrame(640, 480, 333'333).addFrame(1280, 1024, 1'000'000);
    EXPECT_EQ(nominalPeriod(camera.bytes()), std::chrono::nanoseconds(33'333'300));
    EXPECT_EQ(nominalPeriod(Descriptors().addStreamInterface().bytes()).count(), 0);
    EXPECT_EQ(nominalPeriod({}).count(), 0);
}

TEST(UsbTransfers, BulkIsGuessedFromTheLargestFrame)
{
    Descriptors camera;
    camera.addStreamInterface().addFormat(16).addFrame(640, 480).addFrame(1280, 1024);
    camera.addEndpoint(2, 512);
    const TransferMemory memory = transferMemory(camera.bytes(), std::nullopt);
    EXPECT_EQ(memory.basis, SizeBasis::FrameSize);
    EXPECT_EQ(memory.bytes, 100 * (1280 * 1024 * 2 + 12));
}

TEST(UsbTransfers, WhatTheCameraTellsOfBulkPayloadsHolds)
{
    Descriptors camera;
    camera.addStreamInterface().addFormat(16).addFrame(320, 240).addEndpoint(2, 512);
    for (const std::int64_t payload : {16 * 1024, 1024 * 1024}) {
        const TransferMemory memory = transferMemory(camera.bytes(), payload);
        EXPECT_EQ(memory.basis, SizeBasis::Camera);
        EXPECT_EQ(memory.bytes, 100 * payload);
    }
}

TEST(UsbTransfers, IsochronousIsThirtyTwoPackets)
{
    Descriptors camera;
    camera.addStreamInterface().addFormat(16).addFrame(1280, 1024);
    camera.addStreamInterface().addEndpoint(5, 512);
    // Three packets of 1024 bytes in a microframe.
    camera.addStreamInterface().addEndpoint(5, 1024 | 2 << 11);
    const TransferMemory memory = transferMemory(camera.bytes(), 1024 * 1024);
    EXPECT_EQ(memory.basis, SizeBasis::Descriptors);
    EXPECT_EQ(memory.bytes, 100 * 32 * 3072);
}

TEST(UsbTransfers, ASmallFrameNeedsFewerPackets)
{
    Descriptors camera;
    camera.addStreamInterface().addFormat(8).addFrame(64, 48).addEndpoint(5, 1024);
    EXPECT_EQ(transferMemory(camera.bytes(), std::nullopt).bytes, 100 * 3 * 1024);
}

TEST(UsbTransfers, OtherInterfacesDoNotCount)
{
    Descriptors camera;
    camera.addControlInterface().addFormat(16).addFrame(640, 480);
    EXPECT_EQ(transferMemory(camera.bytes(), std::nullopt).bytes, 0);
}

TEST(UsbTransfers, MalformedDescriptorsEndTheReading)
{
    EXPECT_EQ(transferMemory({}, std::nullopt).bytes, 0);
    EXPECT_EQ(transferMemory(std::string(64, '\0'), std::nullopt).bytes, 0);
    Descriptors camera;
    camera.addStreamInterface().addFormat(16).addFrame(1280, 1024).addEndpoint(2, 512);
    const std::string whole = camera.bytes();
    for (std::size_t length = 0; length < whole.size(); ++length) {
        const std::int64_t bytes = transferMemory(whole.substr(0, length), std::nullopt).bytes;
        EXPECT_TRUE(bytes == 0 || bytes <= 100 * (1280 * 1024 * 2 + 12)) << length;
    }
}

TEST(UsbTransfers, TheFirstVideoStreamIsTheOneToAsk)
{
    Descriptors camera;
    camera.addControlInterface();
    EXPECT_EQ(videoStreamInterface(camera.bytes()), std::nullopt);
    camera.addStreamInterface(3).addFormat(16).addFrame(64, 48).addStreamInterface(4);
    EXPECT_EQ(videoStreamInterface(camera.bytes()), 3);
    EXPECT_EQ(videoStreamInterface(std::string(64, '\0')), std::nullopt);
}

TEST(UsbTransfers, ThePayloadSizeIsTheLastFieldOfTheShortestProbeBlock)
{
    std::string block(26, '\x55');
    block.replace(22, 4, std::string("\x00\x00\x10\x00", 4));
    EXPECT_EQ(payloadBytesOf(block), 1024 * 1024);
    EXPECT_EQ(payloadBytesOf(block + std::string(8, '\x55')), 1024 * 1024);
    EXPECT_EQ(payloadBytesOf(block.substr(0, 25)), std::nullopt);
    EXPECT_EQ(payloadBytesOf({}), std::nullopt);
    block.replace(22, 4, std::string(4, '\0'));
    EXPECT_EQ(payloadBytesOf(block), std::nullopt);
}
