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

TEST(DurationsTest, KeepsSomeOfVeryMany)
{
    constexpr int many = 2'000'000;
    Durations durations;
    for (int i = 0; i < many; ++i) { // in an order that has nothing to do with their sizes
        durations.add(std::chrono::nanoseconds(1000 + std::int64_t{i} * 1'234'577 % many));
    }
    EXPECT_EQ(durations.count(), std::uint64_t{many});
    EXPECT_EQ(durations.kept(), Durations::capacity);
    constexpr double fiveDeviations = 0.01 * many;
    for (const double percent : {10.0, 50.0, 99.0}) {
        EXPECT_NEAR(static_cast<double>(durations.percentile(percent).count()),
                    1000 + many * percent / 100, fiveDeviations);
    }
    EXPECT_EQ(durations.percentile(0), 1000ns);
    EXPECT_EQ(durations.percentile(100), std::chrono::nanoseconds(1000 + many - 1));
}

TEST(DurationsTest, TheOldOnesOfVeryManyCountAsTheNew)
{
    Durations durations;
    for (const auto duration : {1ms, 3ms}) {
        for (std::size_t i = 0; i < 4 * Durations::capacity; ++i) {
            durations.add(duration);
        }
    }
    EXPECT_EQ(durations.percentile(45), 1ms);
    EXPECT_EQ(durations.percentile(55), 3ms);
}

TEST(DurationsTest, DistancesCountOnBothSides)
{
    Durations durations;
    for (const auto duration : {17ms, 20ms, 21ms}) {
        durations.add(duration);
    }
    const Durations distances = durations.distancesFrom(20ms);
    EXPECT_EQ(distances.count(), 3U);
    EXPECT_EQ(distances.percentile(0), 0ms);
    EXPECT_EQ(distances.percentile(50), 1ms);
    EXPECT_EQ(distances.percentile(100), 3ms);
}

TEST(DurationsTest, TheFarthestOfVeryManyIsKept)
{
    Durations durations;
    durations.add(14ms);
    for (std::size_t i = 0; i < 4 * Durations::capacity; ++i) {
        durations.add(20ms);
    }
    EXPECT_EQ(durations.distancesFrom(20ms).percentile(100), 6ms);
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
