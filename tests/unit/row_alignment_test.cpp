#include "frame_unpacking.h"
#include "guarded_bytes.h"
#include "row_alignment.h"
#include "row_alignment_model.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

namespace
{

using Image = std::vector<unsigned char>;
using Header = std::array<unsigned char, 6>;

constexpr unsigned char leftMark = 0x30;
constexpr unsigned char rightMark = 0x3A;

/// Header bytes 2 to 7 with the marks at these places; -1 leaves a mark out.
Header headerWith(int left, int right)
{
    Header header = {1, 2, 3, 4, 5, 6};
    if (left >= 2) {
        header[static_cast<std::size_t>(left - 2)] = leftMark;
    }
    if (right >= 2) {
        header[static_cast<std::size_t>(right - 2)] = rightMark;
    }
    return header;
}

/// Every place of both marks, and every pair of marks that shows that the highest place counts.
std::vector<Header> everyHeader()
{
    std::vector<Header> headers;
    for (int left = -1; left <= 7; left += left < 0 ? 3 : 1) {
        for (int right = -1; right <= 7; right += right < 0 ? 3 : 1) {
            headers.push_back(headerWith(left, right));
            for (int again = 2; again <= 7; ++again) {
                Header doubled = headerWith(left, right);
                doubled[static_cast<std::size_t>(again - 2)] =
                    again % 2 == 0 ? leftMark : rightMark;
                headers.push_back(doubled);
            }
        }
    }
    headers.push_back({48, 16, 55, 89, 0, 90});
    headers.push_back({48, 165, 58, 90, 0, 90});
    headers.push_back({48, 165, 58, 9, 0, 90}); // joins to the same digits as the first of these
    return headers;
}

Image imageWith(const Header& header, int width, int height)
{
    Image image = noise(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), 2);
    for (std::size_t i = 0; i < header.size() && 2 + i < image.size(); ++i) {
        image[2 + i] = header[i];
    }
    return image;
}

void expectRealignsLikeModel(const Header& header, int width, int height)
{
    SCOPED_TRACE(::testing::Message()
                 << width << "x" << height << ", header " << int{header[0]} << " " << int{header[1]}
                 << " " << int{header[2]} << " " << int{header[3]} << " " << int{header[4]} << " "
                 << int{header[5]});
    const Image original = imageWith(header, width, height);
    Image expected = original;
    const int expectedResult = realignLikeModel(expected, width, height);

    GuardedBytes image(original.size());
    std::ranges::copy(original, image.data());
    const RowAlignment result = realignRows(image.bytes(), width, height);

    EXPECT_EQ(static_cast<int>(result), expectedResult);
    EXPECT_TRUE(sameBytes(expected, image.bytes()));
    EXPECT_TRUE(image.guardsIntact());
}

TEST(RowAlignment, FollowsEveryHeaderAtEverySmallSize)
{
    for (const Header& header : everyHeader()) {
        for (int width = 1; width <= 12; ++width) {
            for (int height = 1; height <= 12; ++height) {
                expectRealignsLikeModel(header, width, height);
            }
        }
    }
}

TEST(RowAlignment, FollowsEveryHeaderAtRealSizes)
{
    for (const Header& header : everyHeader()) {
        expectRealignsLikeModel(header, 64, 33);
        expectRealignsLikeModel(header, 641, 7);
        expectRealignsLikeModel(header, 1280, 16);
    }
}

TEST(RowAlignment, LeavesNoDataAlone)
{
    EXPECT_EQ(realignRows({}, 1280, 1024), RowAlignment::NoData);
}

TEST(RowAlignment, LeavesAlignedHeadersAlone)
{
    for (const Header& header : {Header{48, 16, 55, 89, 0, 90}, Header{48, 165, 58, 90, 0, 90}}) {
        const Image original = imageWith(header, 16, 4);
        Image image = original;
        EXPECT_EQ(realignRows(image, 16, 4), RowAlignment::Unchanged);
        EXPECT_EQ(image, original);
    }
}

TEST(RowAlignment, MovesLeftAndKeepsTheUncoveredEnd)
{
    Image image = imageWith(headerWith(4, -1), 8, 3);
    for (std::size_t i = 0; i < 8; ++i) {
        image[16 + i] = static_cast<unsigned char>(i);
    }
    EXPECT_EQ(realignRows(image, 8, 3), RowAlignment::Shifted);
    EXPECT_EQ(Image(image.begin() + 16, image.end()), (Image{2, 3, 4, 5, 6, 7, 6, 7}));
}

TEST(RowAlignment, MovesRightAndKeepsTheUncoveredStart)
{
    Image image = imageWith(headerWith(-1, 3), 8, 3);
    for (std::size_t i = 0; i < 8; ++i) {
        image[16 + i] = static_cast<unsigned char>(i);
    }
    EXPECT_EQ(realignRows(image, 8, 3), RowAlignment::Shifted);
    EXPECT_EQ(Image(image.begin() + 16, image.end()), (Image{0, 0, 1, 2, 3, 4, 5, 6}));
}

/// A packed frame whose two images begin with these headers.
Image packedFrame(const Header& headerA, const Header& headerB, int width, int height)
{
    const Image a = imageWith(headerA, width, height);
    const Image b = imageWith(headerB, width, height);
    Image frame(2 * a.size());
    for (std::size_t i = 0; i < a.size(); ++i) {
        frame[2 * i] = a[i];
        frame[2 * i + 1] = static_cast<unsigned char>(i < 8 ? b[i] : b[i] ^ 0x55);
    }
    return frame;
}

void expectUnpacksRealigned(const Header& headerA, const Header& headerB, int width, int height)
{
    SCOPED_TRACE(::testing::Message() << width << "x" << height);
    const Image frame = packedFrame(headerA, headerB, width, height);
    Image a(frame.size() / 2);
    Image b(frame.size() / 2);
    for (std::size_t i = 0; i < a.size(); ++i) {
        a[i] = frame[2 * i];
        b[i] = frame[2 * i + 1];
    }
    realignLikeModel(a, width, height);
    realignLikeModel(b, width, height);

    GuardedBytes imageA(a.size(), 1);
    GuardedBytes imageB(b.size());
    unpackFrame(FrameLayout::InterleavedShifted, frame.data(), width, height, imageA.data(),
                imageB.data());

    EXPECT_TRUE(sameBytes(a, imageA.bytes())) << "image A";
    EXPECT_TRUE(sameBytes(b, imageB.bytes())) << "image B";
    EXPECT_TRUE(imageA.guardsIntact());
    EXPECT_TRUE(imageB.guardsIntact());
}

TEST(RowAlignment, MovesEachImageOfAFrameByItsOwnHeader)
{
    const std::vector<Header> headers = everyHeader();
    for (std::size_t i = 0; i < headers.size(); ++i) {
        const Header& other = headers[(7 * i + 3) % headers.size()];
        for (int width = 1; width <= 80; width += width < 20 ? 1 : 9) {
            expectUnpacksRealigned(headers[i], other, width, 7);
        }
        expectUnpacksRealigned(headers[i], other, 641, 5);
        expectUnpacksRealigned(headers[i], headers[i], 1280, 6);
    }
}

} // namespace
