// The image blocks that a cached frame yields for each sensor type.

#include "driver_test.h"
#include "sensor_numbers.h"

#include <algorithm>
#include <array>
#include <numeric>

using CameraSpace::ImageBlock;
using testing::ElementsAre;

namespace
{

using Bytes = std::vector<unsigned char>;

constexpr std::array<unsigned char, 8> trailer = {0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8};

class Splitting : public DriverTest
{
protected:
    Splitting() { connect(); }
    void TearDown() override
    {
        qDeleteAll(images);
        DriverTest::TearDown();
    }

    /// Splits a frame of the given pixels, with the trailer where a cached frame has it.
    bool split(int sensorType, int width, int height, const Bytes& pixels)
    {
        qDeleteAll(images);
        images.clear();
        camera.m_sensorType = sensorType;
        camera.m_imageWidth = width;
        camera.m_imageHeight = height;
        const bool isSingle = sensorTypeOf(sensorType).layout == FrameLayout::Single;
        camera.m_pixelFormat =
            isSingle ? CameraSpace::PixelFormatType::Mono8 : CameraSpace::PixelFormatType::Packed16;
        Bytes frame = pixels;
        frame.resize(static_cast<std::size_t>(width * height * (isSingle ? 1 : 2)));
        frame.insert(frame.end(), trailer.begin(), trailer.end());
        return camera.spliteImage(images, frame.data());
    }
    Bytes pixelsOf(int image) const
    {
        const QByteArray& data = images.at(image)->data;
        return {data.begin(), data.end() - static_cast<int>(trailer.size())};
    }
    Bytes trailerOf(int image) const
    {
        const QByteArray& data = images.at(image)->data;
        return {data.end() - static_cast<int>(trailer.size()), data.end()};
    }
    /// The fields that every block has.
    void expectBlocks(int count, int width, int height)
    {
        ASSERT_EQ(images.size(), count);
        for (int i = 0; i < count; ++i) {
            EXPECT_EQ(images.at(i)->type, 0);
            EXPECT_EQ(images.at(i)->width, width);
            EXPECT_EQ(images.at(i)->height, height);
            EXPECT_EQ(images.at(i)->bitsPerPixel, 8);
            EXPECT_EQ(images.at(i)->data.size(), width * height + 8);
            EXPECT_THAT(trailerOf(i), testing::ElementsAreArray(trailer));
        }
    }

    QList<ImageBlock*> images;
};

Bytes counting(std::size_t size, unsigned char first = 1)
{
    Bytes bytes(size);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

} // namespace

TEST_F(Splitting, PlainSensorsInterleaveTheirImages)
{
    std::vector<int> types = sensorsWith(FrameLayout::Interleaved);
    types.insert(types.end(), unknownSensors.begin(), unknownSensors.end());
    for (const int type : types) {
        ASSERT_TRUE(split(type, 2, 1, {10, 20, 30, 40})) << type;
        expectBlocks(2, 2, 1);
        EXPECT_THAT(pixelsOf(0), ElementsAre(10, 30)) << type;
        EXPECT_THAT(pixelsOf(1), ElementsAre(20, 40)) << type;
    }
}

TEST_F(Splitting, ReversedSensorsSendGroupsOfFour)
{
    for (const int type : sensorsWith(FrameLayout::ReversedQuads)) {
        ASSERT_TRUE(split(type, 4, 1, counting(8))) << type;
        expectBlocks(2, 4, 1);
        EXPECT_THAT(pixelsOf(0), ElementsAre(4, 3, 2, 1)) << type;
        EXPECT_THAT(pixelsOf(1), ElementsAre(8, 7, 6, 5)) << type;
    }
}

TEST_F(Splitting, PixelsThatNoGroupReachesAreZero)
{
    for (const int type : sensorsWith(FrameLayout::ReversedQuads)) {
        ASSERT_TRUE(split(type, 7, 1, counting(14))) << type;
        expectBlocks(2, 7, 1);
        EXPECT_THAT(pixelsOf(0), ElementsAre(4, 3, 2, 1, 0, 0, 0)) << type;
        EXPECT_THAT(pixelsOf(1), ElementsAre(8, 7, 6, 5, 0, 0, 0)) << type;
    }
}

TEST_F(Splitting, SmallImagesAreRealignedToo)
{
    ASSERT_TRUE(split(0, 2, 3, {1, 11, 2, 12, 3, 13, 0x30, 14, 5, 15, 6, 0x3A}));
    expectBlocks(2, 2, 3);
    EXPECT_THAT(pixelsOf(0), ElementsAre(1, 2, 3, 0x30, 6, 6));
    // The mark at position 5 asks for one to the left.
    EXPECT_THAT(pixelsOf(1), ElementsAre(11, 12, 13, 14, 0x3A, 0x3A));
}

TEST_F(Splitting, TheHeaderOfASmallImageGoesOnInItsTrailer)
{
    camera.m_sensorType = 0;
    camera.m_imageWidth = 2;
    camera.m_imageHeight = 3;
    camera.m_pixelFormat = CameraSpace::PixelFormatType::Packed16;
    // 0x30 behind position 5 leaves the rows as they are.
    const Bytes frame = {1, 11, 2, 12, 3, 13, 0x30, 0x30, 5, 15, 6, 16, 0x30, 0, 0, 0, 0, 0, 0, 0};
    ASSERT_TRUE(camera.spliteImage(images, frame.data()));
    EXPECT_THAT(pixelsOf(0), ElementsAre(1, 2, 3, 0x30, 5, 6));
    EXPECT_THAT(pixelsOf(1), ElementsAre(11, 12, 13, 0x30, 15, 16));
}

TEST_F(Splitting, TheSingleImageIsTheFrame)
{
    ASSERT_TRUE(split(5, 4, 2, counting(8)));
    expectBlocks(1, 4, 2);
    EXPECT_EQ(pixelsOf(0), counting(8));
}

TEST_F(Splitting, RowsOfTypeSevenAreFilledFromBothEnds)
{
    ASSERT_TRUE(split(7, 8, 2, counting(32)));
    expectBlocks(2, 8, 2);
    EXPECT_THAT(pixelsOf(0),
                ElementsAre(1, 3, 9, 11, 12, 10, 4, 2, 17, 19, 25, 27, 28, 26, 20, 18));
    EXPECT_THAT(pixelsOf(1),
                ElementsAre(5, 7, 13, 15, 16, 14, 8, 6, 21, 23, 29, 31, 32, 30, 24, 22));
}

TEST_F(Splitting, TheRightHalvesOfTypeTwelveAreMirrored)
{
    ASSERT_TRUE(split(12, 8, 1, counting(16)));
    expectBlocks(2, 8, 1);
    EXPECT_THAT(pixelsOf(0), ElementsAre(1, 3, 9, 11, 2, 4, 10, 12));
    EXPECT_THAT(pixelsOf(1), ElementsAre(5, 7, 13, 15, 6, 8, 14, 16));
}

TEST_F(Splitting, TypeThirteenReadsFourStrips)
{
    constexpr int width = 1280;
    Bytes frame(2 * width);
    for (std::size_t i = 0; i < frame.size(); ++i) {
        frame[i] = static_cast<unsigned char>(i * 7 + i / 251);
    }
    ASSERT_TRUE(split(13, width, 1, frame));
    expectBlocks(2, width, 1);
    for (std::size_t q = 0; q < 320; ++q) {
        for (std::size_t strip = 0; strip < 4; ++strip) {
            EXPECT_EQ(pixelsOf(0)[320 * strip + q], frame[8 * q + strip]);
            EXPECT_EQ(pixelsOf(1)[320 * strip + q], frame[8 * q + 4 + strip]);
        }
    }
}

TEST_F(Splitting, LayoutsThatDoNotSuitTheWidthStayInsideTheirImages)
{
    for (const int type : {7, 12, 13}) {
        for (const auto& [width, height] : std::vector<std::pair<int, int>>{
                 {1, 1}, {1, 7}, {2, 3}, {3, 3}, {5, 2}, {6, 5}, {7, 1}, {9, 4}, {321, 2}}) {
            ASSERT_TRUE(split(type, width, height,
                              Bytes(static_cast<std::size_t>(2 * width * height), 0xEE)));
            expectBlocks(2, width, height);
            for (int image = 0; image < 2; ++image) {
                for (const unsigned char pixel : pixelsOf(image)) {
                    EXPECT_TRUE(pixel == 0 || pixel == 0xEE);
                }
            }
        }
    }
}

TEST_F(Splitting, TypeSixDropsImageAWhereItIsAMarker)
{
    // Image A is sent in reverse, so its first bytes are 3, 2, 1 and 0 of the frame.
    const auto frameWithA = [](std::array<unsigned char, 4> a) {
        Bytes frame(16, 0x77);
        std::reverse_copy(a.begin(), a.end(), frame.begin());
        return frame;
    };
    for (const auto& marker : std::vector<std::array<unsigned char, 4>>{{0x55, 0x00, 0xAA, 0x00},
                                                                        {0x00, 0x55, 0xAA, 0x00},
                                                                        {0x55, 0x00, 0x00, 0xAA},
                                                                        {0x00, 0x55, 0x00, 0xAA},
                                                                        {0x33, 0x00, 0xCC, 0x00},
                                                                        {0x00, 0x33, 0xCC, 0x00},
                                                                        {0x33, 0x00, 0x00, 0xCC},
                                                                        {0x00, 0x33, 0x00, 0xCC},
                                                                        {0x55, 0x33, 0xAA, 0xCC}}) {
        ASSERT_TRUE(split(6, 8, 1, frameWithA(marker)));
        expectBlocks(1, 8, 1);
        EXPECT_EQ(pixelsOf(0), Bytes(8, 0x77));
    }
    for (const auto& picture :
         std::vector<std::array<unsigned char, 4>>{{0x55, 0x00, 0xCC, 0x00},
                                                   {0x33, 0x33, 0xAA, 0xAA},
                                                   {0xAA, 0x00, 0x55, 0x00},
                                                   {0x00, 0x00, 0xAA, 0xCC},
                                                   {0x55, 0xAA, 0x00, 0x00},
                                                   {0x00, 0x00, 0x55, 0xAA}}) {
        ASSERT_TRUE(split(6, 8, 1, frameWithA(picture)));
        expectBlocks(2, 8, 1);
    }
    // The virtual camera sends markers of type 6 alone, so it would not show who else knows them.
    for (const int type : sensorsWith(FrameLayout::ReversedQuads)) {
        if (type == 6) {
            continue;
        }
        ASSERT_TRUE(split(type, 8, 1, frameWithA({0x55, 0x00, 0xAA, 0x00})));
        expectBlocks(2, 8, 1);
    }
}

TEST_F(Splitting, TypeZeroRealignsEachImageByItsOwnHeader)
{
    constexpr int width = 10;
    constexpr int height = 3;
    Bytes frame(2 * width * height, 0);
    for (std::size_t i = 0; i < width * height; ++i) {
        frame[2 * i] = static_cast<unsigned char>(100 + i);
        frame[2 * i + 1] = static_cast<unsigned char>(150 + i);
    }
    frame[std::size_t{2} * 4] = 0x30; // image A: two to the left
    frame[2 * 3 + 1] = 0x3A;          // image B: one to the right
    ASSERT_TRUE(split(0, width, height, frame));
    expectBlocks(2, width, height);
    const Bytes a = pixelsOf(0);
    EXPECT_THAT(Bytes(a.begin() + 20, a.end()),
                ElementsAre(122, 123, 124, 125, 126, 127, 128, 129, 128, 129));
    const Bytes b = pixelsOf(1);
    EXPECT_THAT(Bytes(b.begin() + 20, b.end()),
                ElementsAre(170, 170, 171, 172, 173, 174, 175, 176, 177, 178));
    // The plain sensors leave the same frame alone.
    ASSERT_TRUE(split(1, width, height, frame));
    EXPECT_EQ(pixelsOf(0)[20], 120);
}

TEST_F(Splitting, TheTrailerStandsBehindTheBytesOfThePixelFormat)
{
    camera.m_sensorType = 5;
    camera.m_imageWidth = 2;
    camera.m_imageHeight = 1;
    camera.m_pixelFormat = CameraSpace::PixelFormatType::Packed16;
    const Bytes frame = {1, 2, 3, 4, 11, 12, 13, 14, 15, 16, 17, 18};
    ASSERT_TRUE(camera.spliteImage(images, frame.data()));
    ASSERT_EQ(images.size(), 1);
    EXPECT_THAT(pixelsOf(0), ElementsAre(1, 2));
    EXPECT_THAT(trailerOf(0), ElementsAre(11, 12, 13, 14, 15, 16, 17, 18));
}

TEST_F(Splitting, NeedsAFrameAndACamera)
{
    images.append(nullptr);
    EXPECT_FALSE(camera.spliteImage(images, nullptr));
    EXPECT_EQ(images.size(), 1);
    images.clear();
    CameraProbe unconnected;
    unconnected.m_imageWidth = 1;
    unconnected.m_imageHeight = 1;
    const Bytes frame(32, 0);
    EXPECT_FALSE(unconnected.spliteImage(images, frame.data()));
    EXPECT_EQ(images.size(), 0);
}

TEST_F(Splitting, AnImageThatNoByteArrayCanHoldIsRefused)
{
    camera.m_sensorType = 5;
    camera.m_pixelFormat = CameraSpace::PixelFormatType::Mono8;
    camera.m_imageWidth = 65535;
    camera.m_imageHeight = 65535;
    const Bytes frame(32, 0);
    // Nothing of the frame may be read: it is far too small.
    const auto splitting = [&] { return camera.spliteImage(images, frame.data()); };
    EXPECT_FALSE(splitting());
    EXPECT_EQ(images.size(), 0);
}

TEST(PixelFormats, TellTheBytesForEachPosition)
{
    const auto bytesFor = [](unsigned format) {
        return CZRNCamera::ChannelFromImgFormat(static_cast<CameraSpace::PixelFormatType>(format));
    };
    EXPECT_EQ(bytesFor(0x108), 1);
    EXPECT_EQ(bytesFor(0x110), 2);
    EXPECT_EQ(bytesFor(0x208), 1);
    EXPECT_EQ(bytesFor(0x100), 0);
    EXPECT_EQ(bytesFor(0x101), 1);
    EXPECT_EQ(bytesFor(0x109), 2);
    EXPECT_EQ(bytesFor(0xffffffff), 32);
}
