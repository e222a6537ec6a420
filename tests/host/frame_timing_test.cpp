#include "common/frame_timing.h"

#include <gtest/gtest.h>

#include <cmath>

using namespace zrnhost;
using namespace std::chrono_literals;
using zrn::FrameTimes;

namespace
{

constexpr std::uint32_t cameraHz = 48'000'000;

/// A frame with this number whose first payload comes at @p first.
zrn::Frame frameAt(std::uint32_t number, std::chrono::nanoseconds first)
{
    zrn::Frame frame;
    frame.step.number = number;
    frame.times.source = FrameTimes::Source::Payload;
    frame.times.firstPayload = FrameTimes::time_point(first);
    frame.times.lastPayload = frame.times.firstPayload + 4ms;
    frame.times.handOver = frame.times.lastPayload + 300us;
    frame.arrival = frame.times.handOver + 2ms;
    return frame;
}

} // namespace

TEST(FrameTimingTest, TellsThePartsOfAFramesTime)
{
    FrameTiming timing;
    for (std::uint32_t i = 0; i < 10; ++i) {
        timing.addFrame(frameAt(100 + i, 7h + i * 20ms));
    }
    EXPECT_EQ(timing.source(), FrameTimes::Source::Payload);
    EXPECT_NEAR(timing.period(), 0.020, 1e-9);
    EXPECT_LE(timing.jitter().percentile(100), 1ns);
    EXPECT_EQ(timing.jitter().count(), 9U);
    EXPECT_EQ(timing.transfers().percentile(50), 4ms);
    EXPECT_EQ(timing.handOvers().percentile(50), 300us);
    EXPECT_EQ(timing.grabs().percentile(50), 2ms);
    EXPECT_FALSE(timing.drift());
}

TEST(FrameTimingTest, AMissingFrameIsNoJitterAndNoLongerPeriod)
{
    FrameTiming timing;
    for (std::uint32_t i = 0; i < 20; ++i) {
        if (i != 10) {
            zrn::Frame frame = frameAt(i, i * 20ms);
            frame.step.missing = i == 11 ? 1 : 0;
            timing.addFrame(frame);
        }
    }
    EXPECT_NEAR(timing.period(), 0.020, 1e-9);
    EXPECT_LE(timing.jitter().percentile(100), 1ns);
    EXPECT_EQ(timing.jitter().count(), 17U);
}

TEST(FrameTimingTest, AFrameThatComesLateIsJitter)
{
    FrameTiming timing;
    for (std::uint32_t i = 0; i < 101; ++i) {
        timing.addFrame(frameAt(i, i * 20ms + (i == 50 ? 3ms : 0ms)));
    }
    EXPECT_NEAR(static_cast<double>(timing.jitter().percentile(100).count()), 3e6, 1e4);
    EXPECT_LE(timing.jitter().percentile(90), 10us);
}

TEST(FrameTimingTest, TheCamerasClockDriftsOverItsWraps)
{
    FrameTiming timing;
    for (std::uint32_t i = 0; i < 10'000; ++i) { // 200 s; the clock wraps after 89
        zrn::Frame frame = frameAt(i, i * 20ms);
        const double seconds = i * 0.020 * (1 + 40e-6);
        frame.times.sent =
            static_cast<std::uint32_t>(static_cast<std::uint64_t>(seconds * cameraHz));
        frame.times.cameraHz = cameraHz;
        timing.addFrame(frame);
    }
    const auto drift = timing.drift();
    ASSERT_TRUE(drift);
    EXPECT_NEAR(drift->partsPerMillion, 40.0, 0.01);
    EXPECT_LT(drift->error, 0.01);
}

TEST(FrameTimingTest, TheWorstSourceCounts)
{
    FrameTiming timing;
    timing.addFrame(frameAt(0, 0ms));
    zrn::Frame frame = frameAt(1, 20ms);
    frame.times.source = FrameTimes::Source::HandOver;
    timing.addFrame(frame);
    timing.addFrame(frameAt(2, 40ms));
    EXPECT_EQ(timing.source(), FrameTimes::Source::HandOver);
}

TEST(FrameTimingTest, ARenumberingBeginsAnew)
{
    FrameTiming timing;
    timing.addFrame(frameAt(1000, 0ms));
    zrn::Frame frame = frameAt(0, 5s);
    frame.step.restarted = true;
    timing.addFrame(frame);
    timing.addFrame(frameAt(1, 5s + 20ms));
    EXPECT_NEAR(timing.period(), 0.020, 1e-9);
}

TEST(FrameTimingTest, NumbersWhoseHighBitsComeToLightAreNoLeap)
{
    FrameTiming timing;
    for (std::uint32_t i = 0; i < 100; ++i) {
        const std::uint32_t number = 0xC4D2 + i;
        timing.addFrame(frameAt(number < 0xC500 ? number & 0xFF : number, i * 20ms));
    }
    EXPECT_NEAR(timing.period(), 0.020, 1e-9);
}

TEST(FrameTimingTest, ACameraClockThatIsSetAnewIsNoDrift)
{
    FrameTiming timing;
    for (std::uint32_t i = 0; i < 200; ++i) {
        zrn::Frame frame = frameAt(i, i * 20ms);
        frame.times.sent = (i < 100 ? 3'000'000'000U : 0U) + i * (cameraHz / 50);
        frame.times.cameraHz = cameraHz;
        timing.addFrame(frame);
    }
    const auto drift = timing.drift();
    ASSERT_TRUE(drift);
    EXPECT_NEAR(drift->partsPerMillion, 0.0, 0.01);
}

TEST(FrameTimingTest, OnlyFramesWhosePayloadsWereSeenTellTheTransfer)
{
    FrameTiming timing;
    timing.addFrame(frameAt(0, 0ms));
    zrn::Frame late = frameAt(1, 20ms);
    late.times.source = FrameTimes::Source::HandOver;
    timing.addFrame(late);
    EXPECT_EQ(timing.transfers().count(), 1U);
    EXPECT_EQ(timing.handOvers().count(), 1U);
}

TEST(LineTest, TheErrorIsThatOfTheSlope)
{
    Line line;
    // Residuals 1, -2, 1 around a flat line.
    line.add(0, 1);
    line.add(1, -2);
    line.add(2, 1);
    EXPECT_NEAR(line.slope(), 0.0, 1e-12);
    EXPECT_NEAR(line.slopeError(), std::sqrt(6.0 / 1 / 2), 1e-12);
}
