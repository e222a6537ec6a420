#include "common/frame_timing.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <utility>

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

/// What the camera's clock says at this time, when it is so much too fast.
std::uint32_t cameraClock(std::chrono::nanoseconds time, double partsPerMillion)
{
    const double seconds =
        std::chrono::duration<double>(time).count() * (1 + partsPerMillion * 1e-6);
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(seconds * cameraHz));
}

/// A minute of 50 frames a second on a busy machine: each comes a bit late, and every half second,
/// on average, all wait for 150 ms.
FrameTiming onABusyMachine(double partsPerMillion, unsigned seed)
{
    std::mt19937 random(seed); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same delays in each run
    const auto unit = [&random] { return (static_cast<double>(random()) + 1.0) / 4294967296.0; };
    FrameTiming timing;
    std::chrono::nanoseconds stallEnd{};
    for (std::uint32_t i = 0; i < 3000; ++i) {
        const auto sent = i * 20ms;
        const std::chrono::nanoseconds late(static_cast<std::int64_t>(-std::log(unit()) * 3e5));
        if (sent > stallEnd && unit() < 0.04) {
            stallEnd = sent + 150ms;
        }
        zrn::Frame frame = frameAt(i, std::max<std::chrono::nanoseconds>(sent, stallEnd) + late);
        frame.times.sent = cameraClock(sent, partsPerMillion);
        frame.times.cameraHz = cameraHz;
        timing.addFrame(frame);
    }
    return timing;
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
    EXPECT_EQ(timing.frames(), 10U);
    EXPECT_FALSE(timing.drift());
    EXPECT_EQ(timing.cameraJitter().count(), 0U);
    EXPECT_EQ(timing.capturedToSent().count(), 0U);
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
        frame.times.sent = cameraClock(i * 20ms, 40.0);
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
    for (std::uint32_t i = 0; i < 600; ++i) {
        zrn::Frame frame = frameAt(i, i * 20ms);
        frame.times.sent = (i < 100 ? 3'000'000'000U : 0U) + i * (cameraHz / 50);
        frame.times.cameraHz = cameraHz;
        timing.addFrame(frame);
    }
    const auto drift = timing.drift();
    ASSERT_TRUE(drift);
    EXPECT_NEAR(drift->partsPerMillion, 0.0, 0.01);
}

TEST(FrameTimingTest, WhatTheMachineIsLateIsNoDrift)
{
    constexpr unsigned runs = 50;
    for (const auto& [truth, most] :
         {std::pair(0.0, 1.0), std::pair(20.0, 1.0), std::pair(-10'000.0, 5.0)}) {
        unsigned inTwoErrors = 0;
        for (unsigned seed = 0; seed < runs; ++seed) {
            const auto drift = onABusyMachine(truth, seed).drift();
            ASSERT_TRUE(drift);
            const double off = std::abs(drift->partsPerMillion - truth);
            ASSERT_LT(off, most) << "of " << truth << ", seed " << seed;
            inTwoErrors += off <= 2 * drift->error ? 1U : 0U;
        }
        EXPECT_GE(inTwoErrors, runs * 88 / 100) << "of " << truth << ": 95 are to be expected";
    }
}

TEST(FrameTimingTest, ADriftNeedsSomeSeconds)
{
    FrameTiming timing;
    for (std::uint32_t i = 0; i < 400; ++i) { // 8 s
        zrn::Frame frame = frameAt(i, i * 20ms);
        frame.times.sent = cameraClock(i * 20ms, 0);
        frame.times.cameraHz = cameraHz;
        timing.addFrame(frame);
        EXPECT_FALSE(timing.drift());
    }
}

TEST(FrameTimingTest, WithoutTheTimeOfSendingThatOfTheCaptureDrifts)
{
    FrameTiming timing;
    for (std::uint32_t i = 0; i < 2000; ++i) {
        zrn::Frame frame = frameAt(i, 7ms + i * 20ms);
        frame.times.captured = cameraClock(i * 20ms, -30.0);
        frame.times.cameraHz = cameraHz;
        timing.addFrame(frame);
    }
    const auto drift = timing.drift();
    ASSERT_TRUE(drift);
    EXPECT_NEAR(drift->partsPerMillion, -30.0, 0.01);
    EXPECT_EQ(timing.cameraJitter().count(), 0U);
}

TEST(FrameTimingTest, ACameraWhoseFramesAreFarApartDriftsToo)
{
    FrameTiming timing;
    for (std::uint32_t i = 0; i < 500; ++i) {
        zrn::Frame frame = frameAt(i, i * 70s);
        frame.times.sent = cameraClock(i * 70s, 5.0);
        frame.times.cameraHz = cameraHz;
        timing.addFrame(frame);
    }
    const auto drift = timing.drift();
    ASSERT_TRUE(drift);
    EXPECT_NEAR(drift->partsPerMillion, 5.0, 0.01);
}

TEST(FrameTimingTest, TheCamerasClockTellsItsOwnJitter)
{
    FrameTiming timing;
    for (std::uint32_t i = 0; i < 101; ++i) {
        const auto early = i == 50 ? 1ms : 0ms;
        zrn::Frame frame = frameAt(i, i * 20ms + (i % 7) * 5ms); // the host's
        frame.step.missing = i == 70 ? 1 : 0;
        frame.times.captured = cameraClock(1s + i * 20ms - 6ms, 0.0);
        frame.times.sent = cameraClock(1s + i * 20ms - early, 0.0);
        frame.times.cameraHz = cameraHz;
        timing.addFrame(frame);
    }
    const Durations jitter = timing.cameraJitter();
    EXPECT_EQ(jitter.count(), 99U);
    EXPECT_LE(jitter.percentile(90), 1us);
    EXPECT_NEAR(static_cast<double>(jitter.percentile(100).count()), 1e6, 1e3);
    EXPECT_EQ(timing.capturedToSent().count(), 101U);
    EXPECT_NEAR(static_cast<double>(timing.capturedToSent().percentile(50).count()), 6e6, 1e3);
}

TEST(FrameTimingTest, FramesOfOneNumberComeOneAfterAnother)
{
    FrameTiming timing;
    for (std::uint32_t i = 0; i < 50; ++i) {
        zrn::Frame frame = frameAt(7, i * 20ms);
        frame.step.repeated = i > 0;
        timing.addFrame(frame);
    }
    EXPECT_NEAR(timing.period(), 0.020, 1e-9);
    EXPECT_EQ(timing.jitter().count(), 49U);

    for (std::uint32_t i = 0; i < 50; ++i) { // now it counts, and sends each frame twice
        zrn::Frame frame = frameAt(8 + i / 2, 10s + i * 20ms);
        frame.step.repeated = i % 2 == 1;
        timing.addFrame(frame);
    }
    EXPECT_EQ(timing.frames(), 50U);
    EXPECT_NEAR(timing.period(), 0.040, 1e-3);
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
