#include "frame_unpacking.h"
#include "guarded_bytes.h"
#include "row_alignment_model.h"
#include "sensor_numbers.h"
#include "unpacking_model.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

namespace
{

using Image = std::vector<unsigned char>;

struct Geometry {
    int width;
    int height;
};

std::ostream& operator<<(std::ostream& stream, const Geometry& geometry)
{
    return stream << geometry.width << "x" << geometry.height;
}

std::size_t pixelsOf(Geometry geometry)
{
    return static_cast<std::size_t>(geometry.width) * static_cast<std::size_t>(geometry.height);
}

void expectUnpacksLikeModel(int sensorType, Geometry geometry, std::size_t misalignment)
{
    SCOPED_TRACE(::testing::Message() << "sensor type " << sensorType << ", " << geometry
                                      << ", misaligned by " << misalignment);
    const std::size_t pixels = pixelsOf(geometry);
    const FrameLayout layout = sensorTypeOf(sensorType).layout;
    const bool single = layout == FrameLayout::Single;
    const std::size_t size = packedSize(layout, geometry.width, geometry.height);
    ASSERT_EQ(size, single ? pixels : 2 * pixels);

    // The frame ends where its block ends, so that a sanitizer sees each byte read behind it.
    const std::vector<unsigned char> bytes = noise(misalignment + size, 1);
    const std::vector<unsigned char> frame(
        bytes.begin() + static_cast<std::ptrdiff_t>(misalignment), bytes.end());
    UnpackingModel model(layout, static_cast<std::size_t>(geometry.width),
                         static_cast<std::size_t>(geometry.height), frame);
    if (layout == FrameLayout::InterleavedShifted) {
        realignLikeModel(model.a, geometry.width, geometry.height);
        realignLikeModel(model.b, geometry.width, geometry.height);
    }
    GuardedBytes imageA(pixels, misalignment);
    GuardedBytes imageB(pixels, misalignment / 2);

    unpackFrame(layout, bytes.data() + misalignment, geometry.width, geometry.height, imageA.data(),
                single ? nullptr : imageB.data());

    EXPECT_TRUE(sameBytes(model.a, imageA.bytes())) << "image A";
    EXPECT_TRUE(imageA.guardsIntact());
    if (!single) {
        EXPECT_TRUE(sameBytes(model.b, imageB.bytes())) << "image B";
    }
    EXPECT_TRUE(imageB.guardsIntact());
}

class EveryLayout : public ::testing::TestWithParam<int>
{
};

TEST_P(EveryLayout, UnpacksRealGeometries)
{
    for (const Geometry geometry :
         {Geometry{1280, 1024}, {2616, 1991}, {640, 480}, {1920, 1080}, {1264, 1016}, {320, 240}}) {
        expectUnpacksLikeModel(GetParam(), geometry, 0);
    }
}

TEST_P(EveryLayout, UnpacksOddGeometries)
{
    for (const Geometry geometry : {Geometry{1279, 3},
                                    {1281, 3},
                                    {1278, 4},
                                    {1282, 5},
                                    {1283, 2},
                                    {1276, 3},
                                    {1284, 3},
                                    {2617, 3},
                                    {65535, 1},
                                    {1, 65535},
                                    {65535, 3},
                                    {3, 65535},
                                    {961, 7},
                                    {321, 9}}) {
        expectUnpacksLikeModel(GetParam(), geometry, 3);
    }
}

// Every width around one, two and more vectors of any machine, so that each tail length occurs.
TEST_P(EveryLayout, UnpacksEverySmallGeometry)
{
    for (int height = 1; height <= 9; ++height) {
        for (int width = 1; width <= 300; width += width < 140 ? 1 : 7) {
            expectUnpacksLikeModel(GetParam(), {width, height},
                                   static_cast<std::size_t>(width + height) % 5);
        }
    }
}

TEST_P(EveryLayout, UnpacksAnEmptyFrame)
{
    for (const Geometry geometry : {Geometry{0, 0}, {0, 5}, {5, 0}}) {
        expectUnpacksLikeModel(GetParam(), geometry, 1);
    }
}

INSTANTIATE_TEST_SUITE_P(Unpacking, EveryLayout, ::testing::ValuesIn(sensorOfEachLayout()),
                         [](const ::testing::TestParamInfo<int>& type) {
                             return "OfType" + std::to_string(type.param);
                         });

/// Both images of a tiny frame.
std::array<Image, 2> unpack(int sensorType, Geometry geometry, const Image& frame)
{
    std::array<Image, 2> images = {Image(pixelsOf(geometry)), Image(pixelsOf(geometry))};
    unpackFrame(sensorTypeOf(sensorType).layout, frame.data(), geometry.width, geometry.height,
                images[0].data(), images[1].data());
    return images;
}

// Worked by hand, so that a misreading shared by model and code would show.

TEST(Unpacking, AlternatesForAnUnknownSensor)
{
    const auto images = unpack(-1, {2, 1}, {10, 20, 30, 40});
    EXPECT_EQ(images[0], (Image{10, 30}));
    EXPECT_EQ(images[1], (Image{20, 40}));
}

TEST(Unpacking, ReversesGroupsOfFour)
{
    const auto images = unpack(2, {4, 1}, {1, 2, 3, 4, 5, 6, 7, 8});
    EXPECT_EQ(images[0], (Image{4, 3, 2, 1}));
    EXPECT_EQ(images[1], (Image{8, 7, 6, 5}));
}

TEST(Unpacking, FillsRowsFromBothEnds)
{
    const Image frame = {1, 2, 3, 4, 5, 6, 7, 8, 11, 12, 13, 14, 15, 16, 17, 18};
    const auto images = unpack(7, {8, 1}, frame);
    EXPECT_EQ(images[0], (Image{1, 3, 11, 13, 14, 12, 4, 2}));
    EXPECT_EQ(images[1], (Image{5, 7, 15, 17, 18, 16, 8, 6}));
}

TEST(Unpacking, MirrorsTheRightHalves)
{
    const Image frame = {1, 2, 3, 4, 5, 6, 7, 8, 11, 12, 13, 14, 15, 16, 17, 18};
    const auto images = unpack(12, {8, 1}, frame);
    EXPECT_EQ(images[0], (Image{1, 3, 11, 13, 2, 4, 12, 14}));
    EXPECT_EQ(images[1], (Image{5, 7, 15, 17, 6, 8, 16, 18}));
}

TEST(Unpacking, SpreadsFourStrips)
{
    Image frame(std::size_t{2} * 1280);
    for (std::size_t i = 0; i < 8; ++i) {
        frame[i] = static_cast<unsigned char>(1 + i);
        frame[8 + i] = static_cast<unsigned char>(11 + i);
    }
    const auto images = unpack(13, {1280, 1}, frame);
    for (std::size_t strip = 0; strip < 4; ++strip) {
        EXPECT_EQ(images[0][320 * strip], 1 + strip);
        EXPECT_EQ(images[0][320 * strip + 1], 11 + strip);
        EXPECT_EQ(images[1][320 * strip], 5 + strip);
        EXPECT_EQ(images[1][320 * strip + 1], 15 + strip);
    }
}

TEST(Unpacking, ClearsPixelsThatGroupsOfFourDoNotReach)
{
    const auto images = unpack(10, {3, 1}, {1, 2, 3, 4, 5, 6});
    EXPECT_EQ(images[0], (Image{0, 0, 0}));
    EXPECT_EQ(images[1], (Image{0, 0, 0}));
}

} // namespace
