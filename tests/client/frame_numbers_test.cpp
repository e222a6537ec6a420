#include "client/frame_numbers.h"

#include <gtest/gtest.h>

using namespace zrn;

namespace
{

/// The trailer that a camera's frame gets: four bytes, each sign-extended, joined.
std::uint64_t trailerFor(std::uint32_t frame)
{
    std::uint64_t trailer = 0;
    for (int byte = 0; byte < 4; ++byte) {
        const auto extended =
            static_cast<std::int64_t>(static_cast<std::int8_t>(frame >> (8 * byte)));
        trailer |= static_cast<std::uint64_t>(extended) << (8 * byte);
    }
    return trailer;
}

} // namespace

TEST(FrameNumbersTest, KnownBitsEndAtTheFirstNegativeByte)
{
    EXPECT_EQ(knownFrameNumberBits(trailerFor(0x01020304)), 32);
    EXPECT_EQ(knownFrameNumberBits(trailerFor(0x01020380)), 8);
    EXPECT_EQ(knownFrameNumberBits(trailerFor(0x0102ff04)), 16);
    EXPECT_EQ(knownFrameNumberBits(trailerFor(0x01900304)), 24);
    EXPECT_EQ(knownFrameNumberBits(trailerFor(0x81020304)), 32);
}

TEST(FrameNumbersTest, CountingThroughEveryByteBorderIsExactAndWithoutGaps)
{
    for (const std::uint32_t start :
         {0U, 0xfff0U, 0x7ffff0U, 0xfffff0U, 0x7ffffff0U, 0xfffffff0U}) {
        FrameNumbers numbers;
        // A number below 128 in its lowest byte with no negative byte above shows all 32 bits.
        const std::uint32_t first = start & 0x7f7f7f00U;
        numbers.follow(trailerFor(first));
        for (std::uint32_t i = 1; i < 70000; ++i) {
            const FrameStep step = numbers.follow(trailerFor(first + i));
            ASSERT_EQ(step.number, first + i);
            ASSERT_EQ(step.missing, 0U);
            ASSERT_FALSE(step.repeated);
            ASSERT_FALSE(step.restarted);
        }
    }
}

TEST(FrameNumbersTest, CountsMissingNumbers)
{
    FrameNumbers numbers;
    numbers.follow(trailerFor(10));
    EXPECT_EQ(numbers.follow(trailerFor(11)).missing, 0U);
    EXPECT_EQ(numbers.follow(trailerFor(15)).missing, 3U);
    EXPECT_EQ(numbers.follow(trailerFor(200)).missing, 184U);
    const FrameStep step = numbers.follow(trailerFor(300));
    EXPECT_EQ(step.missing, 99U);
    EXPECT_EQ(step.number, 300U);
}

TEST(FrameNumbersTest, AStartInTheHiddenRangeIsNotTakenForALossLater)
{
    FrameNumbers numbers;
    std::uint32_t frame = 0x0280; // seen as 0x80 only
    EXPECT_EQ(numbers.follow(trailerFor(frame)).number, 0x80U);
    for (++frame; frame < 0x0400; ++frame) {
        ASSERT_EQ(numbers.follow(trailerFor(frame)).missing, 0U) << frame;
    }
    EXPECT_EQ(numbers.follow(trailerFor(0x0402)).missing, 2U);
    EXPECT_EQ(numbers.follow(trailerFor(0x0480)).number, 0x0480U);
}

TEST(FrameNumbersTest, NoticesRepetitionAndRestart)
{
    FrameNumbers numbers;
    numbers.follow(trailerFor(0x010000));
    EXPECT_TRUE(numbers.follow(trailerFor(0x010000)).repeated);
    const FrameStep step = numbers.follow(trailerFor(3));
    EXPECT_TRUE(step.restarted);
    EXPECT_EQ(step.missing, 0U);
    EXPECT_EQ(numbers.follow(trailerFor(4)).number, 4U);
}
