#include "pictures/bitmap_font.h"
#include "pictures/frame_composer.h"
#include "pictures/sensor_types.h"
#include "receiver_model.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <tuple>

namespace
{

using zrnsim::FrameComposer;
using zrnsim::FrameLayout;
using zrnsim::FrameRequest;
using Bytes = std::vector<std::uint8_t>;

FrameRequest requestOf(int sensorType, int width, int height, std::uint32_t frameNumber = 0)
{
    FrameRequest request;
    request.sensorType = sensorType;
    request.width = width;
    request.height = height;
    const FrameLayout layout = zrnsim::sensorTypeOf(sensorType).layout;
    request.bytesPerPosition = layout == FrameLayout::Single ? 1 : 2;
    request.frameNumber = frameNumber;
    return request;
}

Bytes compose(const FrameRequest& request)
{
    Bytes frame;
    FrameComposer().compose(request, frame);
    return frame;
}

ReceivedImages receive(const FrameRequest& request)
{
    return receiveFrame(request.sensorType, static_cast<std::size_t>(request.width),
                        static_cast<std::size_t>(request.height), compose(request));
}

/// Below the caption, which names the sensor type, and clear of the edges, where rows that arrived
/// shifted have lost pixels.
Bytes innerPart(const Bytes& image, std::size_t width)
{
    constexpr std::size_t margin = 4;
    Bytes inner;
    for (std::size_t y = image.size() / width / 4 + 8; y < image.size() / width; ++y) {
        inner.insert(inner.end(), image.data() + y * width + margin,
                     image.data() + (y + 1) * width - margin);
    }
    return inner;
}

class EverySensorType : public testing::TestWithParam<int>
{
};

TEST_P(EverySensorType, DeliversThePicturesThatAPlainLayoutDelivers)
{
    const FrameLayout layout = zrnsim::sensorTypeOf(GetParam()).layout;
    if (layout == FrameLayout::Single) {
        GTEST_SKIP() << "shows both scenes in one image";
    }
    constexpr int plain = 14;
    for (const int width : {1280, 640, 64}) {
        if (layout == FrameLayout::Strips && width != 1280) {
            continue; // which it does not suit
        }
        for (const std::uint32_t frameNumber : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 0x12345678U}) {
            const ReceivedImages expected = receive(requestOf(plain, width, 96, frameNumber));
            const ReceivedImages received = receive(requestOf(GetParam(), width, 96, frameNumber));
            ASSERT_TRUE(received.a && received.b);
            EXPECT_EQ(received.trailer, expected.trailer);
            const auto columns = static_cast<std::size_t>(width);
            // Not EXPECT_EQ, which would print them.
            EXPECT_TRUE(innerPart(*received.a, columns) == innerPart(*expected.a, columns))
                << "image A, frame " << frameNumber << ", width " << width;
            EXPECT_TRUE(innerPart(*received.b, columns) == innerPart(*expected.b, columns))
                << "image B, frame " << frameNumber << ", width " << width;
        }
    }
}

TEST_P(EverySensorType, FillsFramesOfEveryGeometry)
{
    constexpr std::pair<int, int> sizes[] = {
        {2616, 1991}, {65535, 1}, {1, 65535}, {320, 40}, {2560, 4}, {1300, 5}, {1281, 6},
        {961, 4},     {642, 5},   {13, 9},    {9, 4},    {8, 8},    {7, 5},    {6, 6},
        {5, 3},       {4, 4},     {3, 3},     {2, 3},    {2, 2},    {1, 1},    {1, 3},
        {1, 9},       {2, 1},     {3, 1},     {8, 1},    {9, 1},    {3, 700}};
    FrameComposer composer;
    Bytes frame;
    for (const auto& [width, height] : sizes) {
        for (const int bytesPerPosition : {1, 2, 3}) {
            FrameRequest request = requestOf(GetParam(), width, height, 0x12345678U);
            request.bytesPerPosition = bytesPerPosition;
            frame.assign(1, 0xAA);
            composer.compose(request, frame);
            const std::size_t pixels =
                static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
            ASSERT_EQ(frame.size(), pixels * static_cast<std::size_t>(bytesPerPosition));
            if (bytesPerPosition == 3 && pixels > 64) {
                const auto behind = frame.begin() + static_cast<std::ptrdiff_t>(2 * pixels);
                EXPECT_TRUE(std::all_of(behind, frame.end(), [](auto byte) { return byte == 0; }));
            }
        }
    }
}

TEST_P(EverySensorType, CarriesTheFrameNumber)
{
    const Bytes frame = compose(requestOf(GetParam(), 32, 16, 0x87654321));
    EXPECT_EQ(frame[2], 0x21);
    EXPECT_EQ(frame[3], 0x43);
    EXPECT_EQ(frame[4], 0x65);
    EXPECT_EQ(frame[5], 0x87);
}

TEST_P(EverySensorType, SendsTheSameFrameTwice)
{
    const FrameRequest request = requestOf(GetParam(), 160, 120, 40);
    FrameComposer used;
    Bytes frame;
    used.compose(requestOf(GetParam(), 160, 120, 39), frame);
    used.compose(requestOf(GetParam(), 64, 64, 3), frame);
    used.compose(requestOf(1, 160, 120, 39), frame);
    used.compose(request, frame);
    EXPECT_TRUE(frame == compose(request));
}

std::vector<int> sensorNumbers()
{
    std::vector<int> numbers = {-1, zrnsim::sensorTypes.back().number + 1};
    for (const zrnsim::SensorType& sensor : zrnsim::sensorTypes) {
        numbers.push_back(sensor.number);
    }
    return numbers;
}

std::string nameOf(const testing::TestParamInfo<int>& sensorType)
{
    return sensorType.param < 0 ? "Unknown" : "Type" + std::to_string(sensorType.param);
}

INSTANTIATE_TEST_SUITE_P(SensorTypes, EverySensorType, testing::ValuesIn(sensorNumbers()), nameOf);

TEST(FrameComposer, SendsNothingWithoutPixels)
{
    for (const auto& [width, height] : {std::pair{0, 0}, {0, 5}, {5, 0}, {-3, 4}}) {
        EXPECT_TRUE(compose(requestOf(2, width, height)).empty());
    }
}

TEST(FrameComposer, ShowsTwoDifferentScenesThatMove)
{
    const ReceivedImages first = receive(requestOf(2, 640, 480, 10));
    const ReceivedImages next = receive(requestOf(2, 640, 480, 11));
    const auto differing = [](const Bytes& left, const Bytes& right) {
        std::size_t count = 0;
        for (std::size_t i = 0; i < left.size(); ++i) {
            count += left[i] == right[i] ? 0U : 1U;
        }
        return count;
    };
    EXPECT_GT(differing(*first.a, *first.b), first.a->size() / 2);
    // More than the digit that changes
    EXPECT_GT(differing(*first.a, *next.a), first.a->size() / 200);
    EXPECT_GT(differing(*first.b, *next.b), first.b->size() / 200);
}

/// Reads the frame number off a picture of 1280x1024 pixels.
std::string readNumber(const Bytes& image)
{
    constexpr std::size_t dot = 8;
    constexpr std::size_t left = 640 - 59 * dot / 2;
    constexpr std::size_t top = 945 - 7 * dot / 2;
    std::string text;
    for (std::size_t place = 0; place < 10; ++place) {
        char found = '?';
        for (char digit = '0'; digit <= '9'; ++digit) {
            bool same = true;
            for (std::size_t y = 0; y < zrnsim::kGlyphHeight; ++y) {
                for (std::size_t x = 0; x < zrnsim::kGlyphWidth; ++x) {
                    const std::size_t pixelX = left + (6 * place + x) * dot + dot / 2;
                    const std::size_t pixelY = top + y * dot + dot / 2;
                    const bool lit = image[pixelY * 1280 + pixelX] > 128;
                    same = same &&
                           lit == zrnsim::hasDot(digit, static_cast<int>(x), static_cast<int>(y));
                }
            }
            found = same ? digit : found;
        }
        text += found;
    }
    return text;
}

TEST(FrameComposer, DrawsTheFrameNumberInBothPictures)
{
    for (const std::uint32_t frameNumber : {0U, 1234567890U, 4294967295U}) {
        std::string expected = std::to_string(frameNumber);
        expected.insert(0, 10 - expected.size(), '0');
        const ReceivedImages images = receive(requestOf(12, 1280, 1024, frameNumber));
        EXPECT_EQ(readNumber(*images.a), expected);
        EXPECT_EQ(readNumber(*images.b), expected);
    }
}

TEST(FrameComposer, ShowsBothScenesSideBySideInASingleImage)
{
    const Bytes single = *receive(requestOf(5, 640, 240, 9)).a;
    const ReceivedImages pair = receive(requestOf(14, 320, 240, 9));
    // Below the caption, which names another type
    for (std::size_t y = 60; y < 240; ++y) {
        for (std::size_t x = 0; x < 320; ++x) {
            ASSERT_EQ(single[y * 640 + x], (*pair.a)[y * 320 + x]) << x << "," << y;
            ASSERT_EQ(single[y * 640 + 320 + x], (*pair.b)[y * 320 + x]) << x << "," << y;
        }
    }
}

TEST(FrameComposer, MarksVoidImagesOfSensorType6)
{
    std::set<std::uint32_t> marked;
    for (std::uint32_t frameNumber = 0; frameNumber < 512; ++frameNumber) {
        const ReceivedImages images = receive(requestOf(6, 64, 32, frameNumber));
        EXPECT_TRUE(images.b);
        EXPECT_TRUE(receive(requestOf(8, 64, 32, frameNumber)).a);
        if (!images.a) {
            marked.insert(frameNumber);
        }
    }
    EXPECT_EQ(marked, (std::set<std::uint32_t>{51, 85, 307, 341}));
}

TEST(FrameComposer, PutsTheVoidMarkInAnyOfItsPlaces)
{
    // Image A begins with frame bytes 3, 2, 1, 0.
    std::set<std::tuple<int, int, int, int>> heads;
    for (const std::uint32_t frameNumber : {0x0033U, 0x0133U, 0x0055U, 0x0155U, 0x3300U, 0x5508U}) {
        const Bytes frame = compose(requestOf(6, 64, 32, frameNumber));
        heads.insert({frame[3], frame[2], frame[1], frame[0]});
    }
    const std::set<std::tuple<int, int, int, int>> expected = {
        {0x00, 0x33, 0x00, 0xCC}, {0x01, 0x33, 0xCC, 0x00}, {0x00, 0x55, 0x00, 0xAA},
        {0x01, 0x55, 0xAA, 0x00}, {0x33, 0x00, 0xCC, 0x00}, {0x55, 0x08, 0xAA, 0x00}};
    EXPECT_EQ(heads, expected);
}

/// How far right the rows of an image lie, found by where the picture matches, or 99.
int rowOffset(const Bytes& sent, const Bytes& picture, std::size_t width, std::size_t row)
{
    for (int offset = -4; offset <= 4; ++offset) {
        bool same = true;
        for (int x = 8; x < static_cast<int>(width) - 8; ++x) {
            const std::size_t start = row * width;
            same = same && sent[start + static_cast<std::size_t>(x + offset)] ==
                               picture[start + static_cast<std::size_t>(x)];
        }
        if (same) {
            return offset;
        }
    }
    return 99;
}

TEST(FrameComposer, ShiftsTheRowsOfSensorType0ThroughEveryAlignment)
{
    constexpr std::size_t width = 320;
    constexpr std::size_t row = 150; // across things without repetition
    std::map<int, int> offsetsA;
    std::map<int, int> offsetsB;
    const auto look = [&](std::uint32_t frameNumber) {
        const FrameRequest request = requestOf(0, width, 240, frameNumber);
        const Bytes frame = compose(request);
        Bytes a(width * 240);
        Bytes b(width * 240);
        for (std::size_t i = 0; i < a.size(); ++i) {
            a[i] = frame[2 * i];
            b[i] = frame[2 * i + 1];
        }
        // The same picture from a camera that has all its rows in place
        const ReceivedImages picture = receive(requestOf(1, width, 240, frameNumber));
        const ReceivedImages received = receive(request);
        EXPECT_EQ(rowOffset(*received.a, *picture.a, width, row), 0) << frameNumber;
        EXPECT_EQ(rowOffset(*received.b, *picture.b, width, row), 0) << frameNumber;
        EXPECT_EQ(rowOffset(a, *picture.a, width, 1), 0) << frameNumber;
        ++offsetsA[rowOffset(a, *picture.a, width, row)];
        ++offsetsB[rowOffset(b, *picture.b, width, row)];
    };
    for (std::uint32_t frameNumber = 0; frameNumber < 7; ++frameNumber) {
        look(frameNumber);
    }
    const std::map<int, int> expected = {{-1, 1}, {0, 3}, {1, 1}, {2, 1}, {3, 1}};
    EXPECT_EQ(offsetsA, expected);
    EXPECT_EQ(offsetsB, expected);

    // Two pixels late: the mark is the byte of the frame number in pixel 2.
    offsetsA.clear();
    offsetsB.clear();
    for (std::uint32_t i = 0; i < 7; ++i) {
        look(0x3A3A0000U + i);
    }
    EXPECT_EQ(offsetsA[-2], 1);
    EXPECT_EQ(offsetsB[-2], 1);
}

TEST(FrameComposer, RealignsSensorType0WhateverTheFrameNumberHolds)
{
    constexpr std::size_t width = 64;
    for (const std::uint32_t special : {0x30U, 0x3AU, 0x00U, 0x10U}) {
        for (std::uint32_t i = 0; i < 14; ++i) {
            for (const std::uint32_t low : {0U, special * 0x0101U}) {
                const std::uint32_t frameNumber = (special * 0x01010000U + i) | low;
                const ReceivedImages received = receive(requestOf(0, width, 48, frameNumber));
                const ReceivedImages picture = receive(requestOf(1, width, 48, frameNumber));
                EXPECT_TRUE(innerPart(*received.a, width) == innerPart(*picture.a, width))
                    << frameNumber;
                EXPECT_TRUE(innerPart(*received.b, width) == innerPart(*picture.b, width))
                    << frameNumber;
            }
        }
    }
}

TEST(FrameComposer, AnnouncesRowsInPlaceWithTheFullHeader)
{
    std::set<Bytes> headers;
    for (std::uint32_t i = 0; i < 7; ++i) {
        const Bytes frame = compose(requestOf(0, 64, 8, 0x00300000U + i));
        headers.insert({frame[4], frame[6], frame[8], frame[10], frame[12], frame[14]});
    }
    EXPECT_EQ(headers.count({48, 165, 58, 90, 0, 90}), 1U);
}

} // namespace
