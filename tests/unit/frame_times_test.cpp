// When frames were there, and where those are that are missing.

#include "driver_test.h"
#include "stream_times.h"
#include "timed_camera.h"
#include "virtual_clock.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <thread>

using CameraSpace::FrameTimes;
using CameraSpace::ImageBlock;
using Source = CameraSpace::FrameTimeSource;

namespace
{

constexpr int frameWidth = 8;
constexpr int frameHeight = 4;
constexpr std::size_t frameSize = std::size_t{2} * frameWidth * frameHeight;

PayloadTimes payloads(std::int64_t first, std::uint64_t bytes = frameSize)
{
    PayloadTimes times;
    times.first = first;
    times.last = first + 5;
    times.bytes = bytes;
    return times;
}

class FrameTimesTest : public DriverTest
{
protected:
    FrameTimesTest()
        : m_device(connect(-1, frameWidth, frameHeight))
    {
        camera.m_cacheFrameCount = 4;
        CameraProbe::m_category.setEnabled(QtDebugMsg, false);
    }
    void TearDown() override
    {
        CameraProbe::m_category.setEnabled(QtDebugMsg, true);
        DriverTest::TearDown();
    }

    void start() { ASSERT_EQ(code(camera.startStream(0)), 0U); }
    /// What the guards and libuvc do for a frame. @param bytes that arrived
    void arrive(std::uint32_t sequence, std::uint64_t bytes = frameSize)
    {
        bus.watch()->note(sequence, payloads(1000 * sequence, bytes));
    }
    void handOver(std::uint32_t sequence, std::size_t bytes = frameSize)
    {
        std::vector<unsigned char> data(bytes, 7);
        ASSERT_TRUE(bus.deliver(m_device, frameWidth, frameHeight, data, sequence));
    }
    void send(std::uint32_t sequence)
    {
        arrive(sequence);
        handOver(sequence);
    }
    FrameTimes grab(ErrorCode expected = ErrorCode::Success)
    {
        FrameTimes times;
        times.sequence = 4711;
        QList<ImageBlock*> images;
        EXPECT_EQ(code(camera.grabTimed(images, times)), code(expected));
        qDeleteAll(images);
        return times;
    }

    fakeuvc::Camera& m_device;
};

} // namespace

TEST_F(FrameTimesTest, AFrameHasTheTimesOfItsPayloads)
{
    start();
    PayloadTimes noted = payloads(1'000'000);
    noted.presentationTime = 17;
    noted.sourceClock = {23, 2047};
    bus.watch()->note(1, noted);
    handOver(1);
    const FrameTimes times = grab();
    EXPECT_EQ(times.firstPayload, 1'000'000);
    EXPECT_EQ(times.lastPayload, 1'000'005);
    EXPECT_EQ(times.payloadSource, Source::Payload);
    EXPECT_EQ(times.sequence, 1U);
    EXPECT_EQ(times.hasPresentationTime, 1U);
    EXPECT_EQ(times.presentationTime, 17U);
    EXPECT_EQ(times.hasSourceClock, 1U);
    EXPECT_EQ(times.sourceClock, 23U);
    EXPECT_EQ(times.busFrame, 2047U);
}

TEST_F(FrameTimesTest, ACameraWithoutClocksTellsNone)
{
    start();
    send(1);
    const FrameTimes times = grab();
    EXPECT_EQ(times.payloadSource, Source::Payload);
    EXPECT_EQ(times.hasPresentationTime, 0U);
    EXPECT_EQ(times.hasSourceClock, 0U);
}

TEST_F(FrameTimesTest, WithoutPayloadsTheHandOverStandsIn)
{
    start();
    handOver(1);
    const FrameTimes times = grab();
    EXPECT_EQ(times.payloadSource, Source::Callback);
    EXPECT_GT(times.handOver, 0);
    EXPECT_EQ(times.firstPayload, times.handOver);
    EXPECT_EQ(times.lastPayload, times.handOver);
}

TEST_F(FrameTimesTest, AFrameOfAnotherSizeIsAnotherFrame)
{
    start();
    arrive(1, frameSize - 1);
    handOver(1);
    EXPECT_EQ(grab().payloadSource, Source::Callback);
}

TEST_F(FrameTimesTest, EachStartNumbersAnew)
{
    start();
    send(1);
    EXPECT_EQ(grab().payloadSource, Source::Payload);
    ASSERT_EQ(code(camera.stopStream(0)), 0U);
    start();
    handOver(1);
    EXPECT_EQ(grab().payloadSource, Source::Callback) << "a time of the stream before";
}

TEST_F(FrameTimesTest, TimesStayWithTheirFramesInTheRing)
{
    start();
    for (std::uint32_t i = 1; i <= 3; ++i) {
        send(i);
    }
    for (std::uint32_t i = 1; i <= 3; ++i) {
        const FrameTimes times = grab();
        EXPECT_EQ(times.sequence, i);
        EXPECT_EQ(times.firstPayload, 1000 * i);
        EXPECT_EQ(times.ringLosses, 0U);
        EXPECT_EQ(times.libraryLosses, 0U);
    }
}

TEST_F(FrameTimesTest, FramesOverwrittenInTheRingAreCounted)
{
    start();
    for (std::uint32_t i = 1; i <= 10; ++i) {
        send(i);
    }
    const FrameTimes times = grab();
    EXPECT_EQ(times.sequence, 7U);
    EXPECT_EQ(times.ringLosses, 6U);
    EXPECT_EQ(times.libraryLosses, 0U);
    EXPECT_EQ(grab().ringLosses, 0U);
}

TEST_F(FrameTimesTest, FramesPassedOverForTheNewestAreCounted)
{
    camera.m_triggerMode = CameraSpace::TriggerMode::Newest;
    start();
    for (std::uint32_t i = 1; i <= 3; ++i) {
        send(i);
    }
    const FrameTimes times = grab();
    EXPECT_EQ(times.sequence, 3U);
    EXPECT_EQ(times.ringLosses, 2U);
}

TEST_F(FrameTimesTest, APlainGrabIsTheLastGrabToo)
{
    start();
    for (std::uint32_t i = 1; i <= 6; ++i) {
        send(i);
    }
    QList<ImageBlock*> images;
    ASSERT_EQ(code(camera.grabImage(images)), 0U);
    qDeleteAll(images);
    EXPECT_EQ(grab().ringLosses, 0U);
}

TEST_F(FrameTimesTest, FramesOvertakenInLibuvcAreCounted)
{
    start();
    send(1);
    arrive(2);
    arrive(3);
    send(4);
    EXPECT_EQ(grab().libraryLosses, 0U);
    const FrameTimes times = grab();
    EXPECT_EQ(times.sequence, 4U);
    EXPECT_EQ(times.libraryLosses, 2U);
    EXPECT_EQ(times.ringLosses, 0U);
}

TEST_F(FrameTimesTest, DamagedFramesAreNotLibuvcsLoss)
{
    start();
    send(1);
    arrive(2, frameSize / 2);
    arrive(3, frameSize + 1);
    handOver(3, frameSize + 1);
    send(4);
    grab();
    const FrameTimes times = grab();
    EXPECT_EQ(times.sequence, 4U);
    EXPECT_EQ(times.libraryLosses, 0U);
}

TEST_F(FrameTimesTest, WhatCameBeforeTheFirstAcceptedFrameIsNotLost)
{
    start();
    arrive(1);
    arrive(2);
    send(3);
    EXPECT_EQ(grab().libraryLosses, 0U);
}

TEST_F(FrameTimesTest, ACallbackTooLateForItsTimeShiftsNoCount)
{
    start();
    send(1);
    for (std::uint32_t i = 2; i < 3 + StreamTimes::capacity; ++i) {
        arrive(i);
    }
    handOver(2);
    send(3 + StreamTimes::capacity);
    grab();
    const FrameTimes late = grab();
    EXPECT_EQ(late.sequence, 2U);
    EXPECT_EQ(late.payloadSource, Source::Callback);
    EXPECT_EQ(late.libraryLosses, 0U);
    EXPECT_EQ(grab().libraryLosses, StreamTimes::capacity);
}

TEST_F(FrameTimesTest, LossesOfBothKindsAddUpOverFramesThatTheRingLost)
{
    start();
    send(1);
    arrive(2);
    for (std::uint32_t i = 3; i <= 9; ++i) {
        send(i);
    }
    const FrameTimes times = grab();
    EXPECT_EQ(times.sequence, 6U);
    EXPECT_EQ(times.ringLosses, 4U);
    EXPECT_EQ(times.libraryLosses, 1U);
}

TEST_F(FrameTimesTest, WithoutPayloadsSkippedNumbersCount)
{
    start();
    handOver(1);
    handOver(4);
    grab();
    EXPECT_EQ(grab().libraryLosses, 2U);
}

TEST_F(FrameTimesTest, AFailedGrabLeavesTheTimesAlone)
{
    camera.m_grabTimeout = 1;
    start();
    EXPECT_EQ(grab(ErrorCode::GrabTimeout).sequence, 4711U);
}

TEST_F(FrameTimesTest, AnotherCamerasFramesAreNobodysLoss)
{
    start();
    send(1);
    send(2);
    ASSERT_EQ(code(camera.disconnectDevice()), 0U);
    enumerate();
    ASSERT_EQ(code(camera.connectDeviceByIndex(0)), 0U);
    camera.m_cacheFrameCount = 4;
    start();
    send(1);
    EXPECT_EQ(grab().ringLosses, 0U);
}

TEST(StreamTimes, WhoReadsWhileAFrameIsNotedReadsOneFrameOrNone)
{
    constexpr std::uint32_t frames = 200'000;
    constexpr auto capacity = std::uint32_t{StreamTimes::capacity};
    const auto times = std::make_unique<StreamTimes>(frameSize);
    std::atomic<std::uint32_t> last = 0;
    std::thread writer([&] {
        for (std::uint32_t i = 1; i <= frames; ++i) {
            PayloadTimes noted = payloads(i, i);
            noted.presentationTime = i;
            times->note(i, noted);
            last.store(i, std::memory_order_relaxed);
        }
    });
    while (last.load(std::memory_order_relaxed) < frames) {
        // The next ones to be overwritten.
        const std::uint32_t newest = last.load(std::memory_order_relaxed);
        const std::uint32_t oldest = newest > capacity ? newest - capacity + 1 : 1;
        for (std::uint32_t i = oldest; i < oldest + 4; ++i) {
            if (const auto one = times->find(i)) {
                ASSERT_EQ(one->times.first, i);
                ASSERT_EQ(one->times.last, i + 5);
                ASSERT_EQ(one->times.bytes, i);
                ASSERT_EQ(one->times.presentationTime, i);
            }
        }
    }
    writer.join();
    EXPECT_EQ(times->find(frames)->times.first, frames);
    EXPECT_FALSE(times->find(frames - capacity));
    EXPECT_FALSE(times->find(0));
}
