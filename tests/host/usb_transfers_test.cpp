#include "common/usb_transfers.h"

#include <gtest/gtest.h>

#include <initializer_list>

using namespace zrnhost;

namespace
{

/// Descriptors of a camera, put together one by one.
class Descriptors
{
public:
    Descriptors& add(std::initializer_list<int> body)
    {
        m_bytes.append(static_cast<char>(body.size() + 1));
        for (const int byte : body) {
            m_bytes.append(static_cast<char>(byte));
        }
        return *this;
    }
    Descriptors& addStreamInterface() { return add({0x04, 1, 0, 1, 0x0e, 0x02, 0, 0}); }
    Descriptors& addFormat(int bits)
    {
        std::vector<int> body(26, 0);
        body[0] = 0x24;
        body[1] = 0x04;
        body[20] = bits;
        return addBytes(body);
    }
    Descriptors& addFrame(int width, int height)
    {
        std::vector<int> body(29, 0);
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
    const QByteArray& bytes() const { return m_bytes; }

private:
    Descriptors& addBytes(const std::vector<int>& body)
    {
        m_bytes.append(static_cast<char>(body.size() + 1));
        for (const int byte : body) {
            m_bytes.append(static_cast<char>(byte));
        }
        return *this;
    }

    QByteArray m_bytes;
};

} // namespace

TEST(UsbTransfers, BulkIsBoundedByTheLargestFrame)
{
    Descriptors camera;
    camera.addStreamInterface().addFormat(16).addFrame(640, 480).addFrame(1280, 1024);
    camera.addEndpoint(2, 512);
    const TransferMemory memory = transferMemory(camera.bytes());
    EXPECT_FALSE(memory.exact);
    EXPECT_EQ(memory.bytes, 100 * (1280 * 1024 * 2 + 12));
}

TEST(UsbTransfers, IsochronousIsThirtyTwoPackets)
{
    Descriptors camera;
    camera.addStreamInterface().addFormat(16).addFrame(1280, 1024);
    camera.addStreamInterface().addEndpoint(5, 512);
    // Three packets of 1024 bytes in a microframe.
    camera.addStreamInterface().addEndpoint(5, 1024 | 2 << 11);
    const TransferMemory memory = transferMemory(camera.bytes());
    EXPECT_TRUE(memory.exact);
    EXPECT_EQ(memory.bytes, 100 * 32 * 3072);
}

TEST(UsbTransfers, ASmallFrameNeedsFewerPackets)
{
    Descriptors camera;
    camera.addStreamInterface().addFormat(8).addFrame(64, 48).addEndpoint(5, 1024);
    EXPECT_EQ(transferMemory(camera.bytes()).bytes, 100 * 3 * 1024);
}

TEST(UsbTransfers, OtherInterfacesDoNotCount)
{
    Descriptors camera;
    camera.add({0x04, 0, 0, 1, 0x0e, 0x01, 0, 0}).addFormat(16).addFrame(640, 480);
    EXPECT_EQ(transferMemory(camera.bytes()).bytes, 0);
}

TEST(UsbTransfers, MalformedDescriptorsEndTheReading)
{
    EXPECT_EQ(transferMemory(QByteArray()).bytes, 0);
    EXPECT_EQ(transferMemory(QByteArray(64, '\0')).bytes, 0);
    Descriptors camera;
    camera.addStreamInterface().addFormat(16).addFrame(1280, 1024).addEndpoint(2, 512);
    const QByteArray whole = camera.bytes();
    for (int length = 0; length < whole.size(); ++length) {
        const qint64 bytes = transferMemory(whole.left(length)).bytes;
        EXPECT_TRUE(bytes == 0 || bytes <= 100 * (1280 * 1024 * 2 + 12)) << length;
    }
}
