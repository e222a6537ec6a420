#include "client/wall_clock.h"

#include <gtest/gtest.h>

#include <ctime>

using namespace zrn;
using namespace std::chrono_literals;
using std::chrono::nanoseconds;

namespace
{

WallClock::time_point moment(nanoseconds time)
{
    return WallClock::time_point(time);
}

WallClock::Reading reading(nanoseconds monotonic, nanoseconds distance, nanoseconds error = 50ns)
{
    return {moment(monotonic), monotonic + distance, error};
}

nanoseconds mapped(const WallClock& clock, nanoseconds time)
{
    return clock.map(moment(time)).value().sinceEpoch;
}

nanoseconds errorOf(const WallClock& clock, nanoseconds time)
{
    return clock.map(moment(time)).value().error;
}

} // namespace

TEST(WallClockTest, WithoutAReadingThereIsNoMapping)
{
    EXPECT_FALSE(WallClock().map(moment(1s)));
}

TEST(WallClockTest, TimesKeepTheirIntervals)
{
    WallClock clock;
    clock.note(reading(10s, 1000h));
    clock.note(reading(11s, 1000h));
    for (const nanoseconds time : {nanoseconds(9s), nanoseconds(10'250ms), nanoseconds(12s)}) {
        EXPECT_EQ(mapped(clock, time), time + 1000h);
        EXPECT_EQ(errorOf(clock, time), 50ns);
    }
}

TEST(WallClockTest, AStepShowsOnItsOwnSideAndAsErrorBetween)
{
    WallClock clock;
    clock.note(reading(10s, 1000h));
    clock.note(reading(11s, 1000h));
    clock.note(reading(12s, 1001h));
    clock.note(reading(13s, 1001h));
    EXPECT_EQ(mapped(clock, 10'500ms), 10'500ms + 1000h);
    EXPECT_EQ(errorOf(clock, 10'500ms), 50ns);
    EXPECT_EQ(mapped(clock, 12'500ms), 12'500ms + 1001h);
    EXPECT_EQ(errorOf(clock, 12'500ms), 50ns);

    EXPECT_EQ(mapped(clock, 11'400ms), 11'400ms + 1000h);
    EXPECT_EQ(mapped(clock, 11'600ms), 11'600ms + 1001h);
    EXPECT_GE(errorOf(clock, 11'400ms), 1h);
    EXPECT_GE(errorOf(clock, 11'600ms), 1h);
}

TEST(WallClockTest, TheErrorIsThatOfTheReadings)
{
    WallClock clock;
    clock.note(reading(10s, 1000h, 2us));
    clock.note(reading(11s, 1000h + 1us, 3us));
    EXPECT_EQ(errorOf(clock, 10'100ms), 3us);
}

TEST(WallClockTest, OldReadingsGoAndTheirTimesAreMappedByTheOldestLeft)
{
    WallClock clock;
    for (int i = 1; i <= 1000; ++i) {
        clock.note(reading(std::chrono::seconds(i), 1000h + std::chrono::seconds(i)));
    }
    EXPECT_EQ(mapped(clock, 1000s), 2000s + 1000h);
    EXPECT_EQ(mapped(clock, 900s), 1800s + 1000h);
    EXPECT_EQ(mapped(clock, 1s), 1s + 1000h + 745s);
}

TEST(WallClockTest, ReadingsThatFollowFastTakeNoOthersPlace)
{
    constexpr auto step = 150s;
    constexpr auto end = 300s;
    WallClock clock;
    for (std::chrono::milliseconds time = 10s; time <= end; time += 10ms) {
        clock.note(reading(time, time < step ? 1000h : 1001h));
    }
    for (const nanoseconds before : {nanoseconds(10s), nanoseconds(60s), nanoseconds(148s)}) {
        EXPECT_EQ(mapped(clock, before), before + 1000h);
        EXPECT_EQ(errorOf(clock, before), 50ns);
    }
    EXPECT_GE(errorOf(clock, step - 5ms), 1h) << "nobody knows whether it was before the step";
    for (const nanoseconds after : {nanoseconds(step + 1s), nanoseconds(end)}) {
        EXPECT_EQ(mapped(clock, after), after + 1001h);
        EXPECT_EQ(errorOf(clock, after), 50ns);
    }
}

TEST(WallClockTest, ReadsTheSystemsClocks)
{
    timespec before{};
    clock_gettime(CLOCK_REALTIME, &before);
    const auto earliest = std::chrono::steady_clock::now();
    const WallClock::Reading read = WallClock::read(WallClock::Kind::Realtime);
    const auto latest = std::chrono::steady_clock::now();
    EXPECT_LE(earliest, read.monotonic);
    EXPECT_GE(latest, read.monotonic);
    EXPECT_GE(read.error, 1ns);
    EXPECT_LE(read.error, (latest - earliest) / 2 + 2ns);
    EXPECT_LT(std::chrono::abs(read.other - std::chrono::seconds(before.tv_sec)), 10s);

    const WallClock::Reading tai = WallClock::read(WallClock::Kind::Tai);
    if (const auto system = SystemClock::ask()) {
        EXPECT_LT(std::chrono::abs(tai.other - read.other - system->taiOffset), 10s);
    }
}
