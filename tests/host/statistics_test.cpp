#include "common/statistics.h"

#include <gtest/gtest.h>

using namespace zrnhost;
using namespace std::chrono_literals;

TEST(DurationsTest, NearestRankPercentiles)
{
    Durations durations;
    EXPECT_EQ(durations.percentile(50), 0ns);
    for (int i = 200; i >= 1; --i) {
        durations.add(std::chrono::milliseconds(i));
    }
    EXPECT_EQ(durations.count(), 200U);
    EXPECT_EQ(durations.percentile(0), 1ms);
    EXPECT_EQ(durations.percentile(50), 100ms);
    EXPECT_EQ(durations.percentile(99), 198ms);
    EXPECT_EQ(durations.percentile(100), 200ms);
}

TEST(DurationsTest, OneSampleIsEveryPercentile)
{
    Durations durations;
    durations.add(7us);
    for (const double percent : {0.0, 50.0, 99.0, 100.0}) {
        EXPECT_EQ(durations.percentile(percent), 7us);
    }
}

TEST(StreamAccountTest, RateIsIntervalsPerSpan)
{
    StreamAccount account;
    EXPECT_EQ(account.rate(), 0.0);
    const StreamAccount::Clock::time_point start{};
    zrn::FrameNumbers numbers;
    account.addFrame(numbers.follow(0), start, 1ms);
    EXPECT_EQ(account.rate(), 0.0);
    account.addFrame(numbers.follow(1), start + 40ms, 1ms);
    account.addFrame(numbers.follow(2), start + 80ms, 1ms);
    EXPECT_DOUBLE_EQ(account.rate(), 25.0);
}

TEST(StreamAccountTest, SumsGapsRepetitionsAndRestarts)
{
    StreamAccount account;
    zrn::FrameNumbers numbers;
    for (const std::uint64_t number : {0x10000U, 0x10001U, 0x10005U, 0x10005U, 0x10008U, 2U, 3U}) {
        account.addFrame(numbers.follow(number), {}, 1ms);
    }
    EXPECT_EQ(account.frames(), 7U);
    EXPECT_EQ(account.gaps(), 2U);
    EXPECT_EQ(account.missing(), 5U);
    EXPECT_EQ(account.repeated(), 1U);
    EXPECT_EQ(account.restarts(), 1U);
}
