// Starting and stopping the stream, the ring's growth, and discarding frames.

#include "driver_test.h"
#include "sensor_numbers.h"
#include "watched_thread.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <sched.h>
#include <thread>

using fakeuvc::Camera;
using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

class Streaming : public DriverTest
{
protected:
    Camera& connectSmall() { return connect(2, imageWidth, imageHeight); }

    /// One frame through the stream that runs on the camera.
    void deliver(const Camera& device, unsigned char value = 1)
    {
        std::vector<unsigned char> data(2 * imageWidth * imageHeight, value);
        EXPECT_TRUE(bus.deliver(device, imageWidth, imageHeight, data));
    }
};

/// Keeps this thread, and those that it starts, to the processor that it runs on.
class OneProcessor
{
public:
    OneProcessor()
    {
        sched_getaffinity(0, sizeof m_before, &m_before);
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(static_cast<std::size_t>(sched_getcpu()), &one);
        sched_setaffinity(0, sizeof one, &one);
    }
    ~OneProcessor() { sched_setaffinity(0, sizeof m_before, &m_before); }
    OneProcessor(const OneProcessor&) = delete;
    OneProcessor& operator=(const OneProcessor&) = delete;

private:
    cpu_set_t m_before{};
};

const std::vector<std::string> startCalls = {
    "uvc_get_stream_ctrl_format_size handle1 format 1 8x4 rate 0",
    "uvc_start_streaming handle1 flags 0"};

} // namespace

TEST_F(Streaming, StartingAllocatesTheRingAndStartsTheStream)
{
    Camera& device = connectSmall();
    camera.m_receivedFrameCount = 5;
    camera.m_writeIndex = 6;
    camera.m_fpsFrameCount = 7;
    camera.m_frameRate = 8.0;
    camera.m_frameIndexQueue.append(3);
    EXPECT_EQ(code(camera.startStream(0)), 0U);

    EXPECT_EQ(bus.callTexts(), startCalls);
    EXPECT_THAT(log.lines(), IsEmpty());
    const auto stream = bus.stream(device);
    ASSERT_TRUE(stream);
    EXPECT_EQ(stream->callback, &CZRNCamera::frameTriggered);
    EXPECT_EQ(stream->userPointer, static_cast<CZRNCamera*>(&camera));
    EXPECT_EQ(stream->control, camera.m_streamCtrl);
    EXPECT_TRUE(camera.m_isStreaming);
    EXPECT_EQ(camera.m_frameBuffers.size(), 16);
    EXPECT_EQ(camera.m_bufferLocks.size(), 16);
    EXPECT_EQ(camera.m_receivedFrameCount, 0);
    EXPECT_EQ(camera.m_writeIndex, 0);
    EXPECT_EQ(camera.m_fpsFrameCount, 0);
    EXPECT_EQ(camera.m_frameRate, 0.0);
    EXPECT_TRUE(camera.m_fpsTimer.isValid());
    EXPECT_THAT(camera.m_frameIndexQueue, ElementsAre(3));
}

TEST_F(Streaming, ACameraMayAnnounceLargerFramesThanItSends)
{
    connectSmall();
    camera.m_streamCtrl = new uvc_stream_ctrl_t();
    camera.m_streamCtrl->dwMaxVideoFrameSize = 20 * 1024 * 1024;
    EXPECT_EQ(code(camera.startStream(0)), 0U);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(Streaming, LibuvcIsNotAskedForMoreMemoryThanAFrameMayTake)
{
    constexpr std::uint32_t largestFrame = 16 * 1024 * 1024;
    connectSmall();
    camera.m_streamCtrl = new uvc_stream_ctrl_t();
    for (const std::uint32_t announced : {0U, 1280U * 1024, largestFrame, largestFrame + 1,
                                          std::numeric_limits<std::uint32_t>::max()}) {
        camera.m_streamCtrl->dwMaxVideoFrameSize = announced;
        std::optional<std::uint32_t> asked;
        bus.setHook([&](const fakeuvc::Call& call) {
            if (call.function == "uvc_start_streaming") {
                asked = camera.m_streamCtrl->dwMaxVideoFrameSize;
            }
        });
        ASSERT_EQ(code(camera.startStream(0)), 0U);
        EXPECT_EQ(asked, std::min(announced, largestFrame));
        camera.stopStream(0);
    }
    bus.setHook({});
}

TEST_F(Streaming, FramesThatLibuvcCannotHoldAreRefused)
{
    connectSmall();
    camera.m_imageWidth = 4096;
    camera.m_imageHeight = 2049;
    camera.m_cacheFrameCount = 1;
    EXPECT_EQ(code(camera.startStream(0)), 1052U);
    EXPECT_THAT(log.lines(),
                ElementsAre(criticalLine(" frames are too large for libuvc, size: 16785408")));
    EXPECT_EQ(bus.count("uvc_start_streaming"), 0);
}

TEST_F(Streaming, StartingTwiceChangesNothing)
{
    connectSmall();
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    camera.m_cacheFrameCount = 20;
    camera.m_writeIndex = 3;
    clearLogs();
    EXPECT_EQ(code(camera.startStream(0)), 0U);
    EXPECT_THAT(log.lines(), ElementsAre(infoLine(" the image stream is started")));
    EXPECT_THAT(bus.callTexts(), IsEmpty());
    EXPECT_EQ(camera.m_frameBuffers.size(), 16);
    EXPECT_EQ(camera.m_writeIndex, 3);
}

TEST_F(Streaming, WithoutACameraNothingStartsOrStops)
{
    EXPECT_EQ(code(camera.startStream(0)), 512U);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(camera.m_frameBuffers.size(), 0);
    EXPECT_EQ(camera.m_streamCtrl, nullptr);

    EXPECT_EQ(code(camera.stopStream(0)), 1033U);
    EXPECT_THAT(log.lines(), ElementsAre(debugLine("start CZRNCamera::stopStream function")));
    camera.m_isStreaming = true;
    EXPECT_EQ(code(camera.stopStream(0)), 512U);
}

TEST_F(Streaming, ARefusedNegotiationIsAFailedStart)
{
    connectSmall();
    bus.fail({"uvc_get_stream_ctrl_format_size", UVC_ERROR_INVALID_MODE});
    camera.m_writeIndex = 3;
    EXPECT_EQ(code(camera.startStream(0)), 1052U);
    EXPECT_THAT(bus.callTexts(), ElementsAre(startCalls[0]));
    EXPECT_THAT(log.lines(),
                ElementsAre(criticalLine(" uvc_get_stream_ctrl_format_size faild ret: -51")));
    EXPECT_FALSE(camera.m_isStreaming);
    EXPECT_EQ(camera.m_writeIndex, 0);
    EXPECT_NE(camera.m_streamCtrl, nullptr);
    EXPECT_EQ(code(camera.stopStream(0)), 1033U);
}

TEST_F(Streaming, ARefusedStartCanBeRepeated)
{
    connectSmall();
    bus.fail({"uvc_start_streaming", UVC_ERROR_BUSY, 1});
    EXPECT_EQ(code(camera.startStream(0)), 1052U);
    EXPECT_EQ(bus.callTexts(), startCalls);
    EXPECT_THAT(log.lines(), ElementsAre(criticalLine(" uvc_start_streaming faild ret: -6")));
    EXPECT_FALSE(camera.m_isStreaming);

    const uvc_stream_ctrl_t* record = camera.m_streamCtrl;
    const QList<unsigned char*> buffers = camera.m_frameBuffers;
    EXPECT_EQ(code(camera.startStream(0)), 0U);
    EXPECT_EQ(camera.m_streamCtrl, record);
    EXPECT_EQ(camera.m_frameBuffers, buffers);
}

TEST_F(Streaming, StoppingClearsTheRateAndKeepsTheFrames)
{
    Camera& device = connectSmall();
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    deliver(device);
    deliver(device);
    camera.m_frameRate = 5.0;
    clearLogs();

    EXPECT_EQ(code(camera.stopStream(0)), 0U);
    EXPECT_THAT(bus.callTexts(), ElementsAre("uvc_stop_streaming handle1"));
    EXPECT_THAT(log.lines(), ElementsAre(debugLine("start CZRNCamera::stopStream function"),
                                         debugLine("end CZRNCamera::stopStream function success")));
    EXPECT_FALSE(camera.m_isStreaming);
    EXPECT_EQ(camera.m_fpsFrameCount, 0);
    EXPECT_EQ(camera.m_frameRate, 0.0);
    EXPECT_EQ(camera.m_frameBuffers.size(), 16);
    EXPECT_THAT(camera.m_frameIndexQueue, ElementsAre(0, 1));

    EXPECT_EQ(code(camera.stopStream(0)), 1033U);
    EXPECT_EQ(code(camera.startStream(0)), 0U);
    EXPECT_THAT(camera.m_frameIndexQueue, ElementsAre(0, 1));
}

TEST_F(Streaming, StartAndStopManyTimes)
{
    Camera& device = connectSmall();
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    const QList<unsigned char*> buffers = camera.m_frameBuffers;
    for (int i = 0; i < 50; ++i) {
        deliver(device);
        EXPECT_EQ(code(camera.stopStream(0)), 0U);
        EXPECT_EQ(code(camera.startStream(0)), 0U);
    }
    EXPECT_EQ(camera.m_frameBuffers, buffers);
}

TEST_F(Streaming, TheRingGrowsAndNeverShrinks)
{
    connectSmall();
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    camera.stopStream(0);
    const QList<unsigned char*> buffers = camera.m_frameBuffers;
    const QList<QMutex*> locks = camera.m_bufferLocks;

    camera.m_cacheFrameCount = 20;
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    camera.stopStream(0);
    ASSERT_EQ(camera.m_frameBuffers.size(), 20);
    ASSERT_EQ(camera.m_bufferLocks.size(), 20);
    EXPECT_EQ(camera.m_frameBuffers.mid(0, 16), buffers);
    EXPECT_EQ(camera.m_bufferLocks.mid(0, 16), locks);

    camera.m_cacheFrameCount = 8;
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    EXPECT_EQ(camera.m_frameBuffers.size(), 20);
    EXPECT_EQ(camera.m_bufferLocks.size(), 20);
}

TEST_F(Streaming, AReducedCountUsesTheFirstSlotsOnly)
{
    Camera& device = connectSmall();
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    camera.stopStream(0);
    camera.m_cacheFrameCount = 3;
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    for (int i = 0; i < 7; ++i) {
        deliver(device);
        EXPECT_EQ(camera.m_writeIndex, (i + 1) % 3);
    }
    EXPECT_THAT(camera.m_frameIndexQueue, ElementsAre(1, 2, 0));
}

TEST_F(Streaming, StartingWaitsForAGrabThatReadsASlot)
{
    connectSmall();
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    camera.stopStream(0);
    clearLogs();

    QMutex* slotLock = camera.m_bufferLocks.at(5);
    slotLock->lock();
    std::atomic<bool> started = false;
    WatchedThread starter([this, &started] {
        EXPECT_EQ(code(camera.startStream(0)), 0U);
        started = true;
    });
    EXPECT_TRUE(starter.waitsForOthers());
    EXPECT_FALSE(started);
    EXPECT_THAT(bus.callTexts(), IsEmpty());
    slotLock->unlock();
    starter.join();
    EXPECT_TRUE(started);
    for (QMutex* lock : camera.m_bufferLocks) {
        EXPECT_TRUE(lock->tryLock());
        lock->unlock();
    }
}

TEST_F(Streaming, NoLockIsHeldWhileLibuvcIsCalled)
{
    connectSmall();
    bus.setHook([this](const fakeuvc::Call& call) {
        const bool writable = camera.m_nodeLock.tryLockForWrite();
        EXPECT_TRUE(writable) << call.text;
        if (writable) {
            camera.m_nodeLock.unlock();
        }
        const bool queueFree = camera.m_frameMutex.tryLock();
        EXPECT_TRUE(queueFree) << call.text;
        if (queueFree) {
            camera.m_frameMutex.unlock();
        }
        for (QMutex* lock : camera.m_bufferLocks) {
            EXPECT_TRUE(lock->tryLock()) << call.text;
            lock->unlock();
        }
    });
    EXPECT_EQ(code(camera.startStream(0)), 0U);
    EXPECT_EQ(code(camera.stopStream(0)), 0U);
    EXPECT_THAT(bus.calls(), SizeIs(3));
}

// Discarding

TEST_F(Streaming, DiscardingOnASilentCameraWaitsOnce)
{
    connectSmall();
    camera.m_grabTimeout = 30;
    camera.m_frameIndexQueue.append({1, 2, 3});
    camera.m_writeIndex = 4;
    camera.m_receivedFrameCount = 5;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(code(camera.discardFrames(0)), 0U);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(29));
    EXPECT_THAT(log.lines(), ElementsAre(LogLine{QtDebugMsg, "default", " flag: false"}));
    EXPECT_THAT(camera.m_frameIndexQueue, IsEmpty());
    EXPECT_EQ(camera.m_writeIndex, 0);
    EXPECT_EQ(camera.m_receivedFrameCount, 0);
    EXPECT_THAT(bus.callTexts(), IsEmpty());
}

TEST_F(Streaming, DiscardingWorksWithoutACamera)
{
    camera.m_grabTimeout = 1;
    EXPECT_EQ(code(camera.discardFrames(0)), 0U);
    EXPECT_THAT(log.lines(), SizeIs(1));
}

TEST_F(Streaming, DiscardingWaitsForSixteenFramesAtMost)
{
    Camera& device = connectSmall();
    camera.m_grabTimeout = 60000;
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    clearLogs();
    CameraProbe::m_category.setEnabled(QtDebugMsg, false);
    std::atomic<bool> done = false;
    std::thread discarder([this, &done] {
        camera.discardFrames(0);
        done = true;
    });
    while (!done) {
        deliver(device);
        std::this_thread::yield();
    }
    discarder.join();
    CameraProbe::m_category.setEnabled(QtDebugMsg, true);
    EXPECT_THAT(log.lines(),
                AllOf(SizeIs(16), Each(LogLine{QtDebugMsg, "default", " flag: true"})));
}

TEST_F(Streaming, DiscardingEndsWithTheStream)
{
    Camera& device = connectSmall();
    camera.m_grabTimeout = 60000;
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    clearLogs();
    WatchedThread discarder([this] { camera.discardFrames(0); });
    EXPECT_TRUE(discarder.waitsForOthers());
    deliver(device);
    EXPECT_TRUE(discarder.waitsForOthers());
    // Hangs for the length of the grab timeout if the stop is taken for a frame.
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(code(camera.stopStream(0)), 0U);
    discarder.join();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(30));
    EXPECT_THAT(camera.m_frameIndexQueue, IsEmpty());
}

TEST_F(Streaming, StoppingWaitsForTheFrameMutex)
{
    // Or else a grab that has just looked would wait for a frame that never comes.
    connectSmall();
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    camera.m_frameMutex.lock();
    WatchedThread stopper([this] { EXPECT_EQ(code(camera.stopStream(0)), 0U); });
    EXPECT_TRUE(stopper.waitsForOthers());
    EXPECT_TRUE(std::atomic_ref(camera.m_isStreaming).load());
    camera.m_frameMutex.unlock();
    stopper.join();
    EXPECT_FALSE(camera.m_isStreaming);
}

TEST_F(Streaming, AStopEndsADiscardThatHasNoStream)
{
    connectSmall();
    camera.m_grabTimeout = -1;
    std::atomic<bool> done = false;
    std::thread discarder([&] {
        camera.discardFrames(0);
        done = true;
    });
    // It may not have begun to wait yet.
    while (!done) {
        EXPECT_EQ(code(camera.stopStream(0)), 1033U);
        std::this_thread::yield();
    }
    discarder.join();
}

TEST_F(Streaming, ADisconnectionEndsADiscardThatHasNoStream)
{
    connectSmall();
    camera.m_grabTimeout = -1;
    WatchedThread discarder([this] { camera.discardFrames(0); });
    EXPECT_TRUE(discarder.waitsForOthers());
    EXPECT_EQ(code(camera.disconnectDevice()), 0U);
    discarder.join();
}

TEST_F(Streaming, ADiscardDoesNotBeginToWaitWhileTheCameraIsDeleted)
{
    for (int round = 0; round < 5; ++round) {
        auto probe = std::make_unique<CameraProbe>();
        probe->m_grabTimeout = -1;
        CameraProbe* const target = probe.get();
        // Both wait for this mutex, the destroyer first, which therefore gets it first.
        target->m_frameMutex.lock();
        WatchedThread destroyer([&] { probe.reset(); });
        EXPECT_TRUE(destroyer.waitsForOthers());
        WatchedThread discarder([target] { target->CZRNCamera::discardFrames(0); });
        EXPECT_TRUE(discarder.waitsForOthers());
        target->m_frameMutex.unlock();
        discarder.join();
        destroyer.join();
    }
}

TEST_F(Streaming, ADiscardThatWaitsEndsWithTheDeletionOfItsCamera)
{
    auto probe = std::make_unique<CameraProbe>();
    probe->m_grabTimeout = -1;
    WatchedThread discarder([target = probe.get()] { target->CZRNCamera::discardFrames(0); });
    EXPECT_TRUE(discarder.waitsForOthers());
    probe.reset();
    discarder.join();
}

TEST_F(Streaming, ADiscardDoesNotWaitAgainOnceTheStreamHasStopped)
{
    Camera& device = connectSmall();
    camera.m_grabTimeout = -1;
    const OneProcessor both;
    for (int round = 0; round < 20; ++round) {
        ASSERT_EQ(code(camera.startStream(0)), 0U);
        WatchedThread discarder([this] {
            const sched_param none{};
            sched_setscheduler(0, SCHED_IDLE, &none);
            camera.discardFrames(0);
        });
        EXPECT_TRUE(discarder.waitsForOthers());
        // The discard goes on when this thread leaves it the processor: the stream has stopped
        // then.
        deliver(device);
        EXPECT_EQ(code(camera.stopStream(0)), 0U);
        discarder.join();
    }
}

TEST_F(Streaming, DeletingACameraWaitsForAGrabThatReadsASlot)
{
    auto probe = std::make_unique<CameraProbe>();
    Camera& device = connect(*probe, 2, imageWidth, imageHeight);
    ASSERT_EQ(code(probe->startStream(0)), 0U);
    deliver(device);
    QMutex* const slotLock = probe->m_bufferLocks.at(0);
    slotLock->lock();
    WatchedThread grabber([target = probe.get()] {
        QList<CameraSpace::ImageBlock*> images;
        // Not by the table of virtual functions, which the destructor writes without asking for a
        // lock.
        target->CZRNCamera::grabImage(images);
        qDeleteAll(images);
    });
    EXPECT_TRUE(grabber.waitsForOthers());
    WatchedThread destroyer([&] { probe.reset(); });
    EXPECT_TRUE(destroyer.waitsForOthers());
    slotLock->unlock();
    grabber.join();
    destroyer.join();
}

TEST_F(Streaming, ARingLeavesASixteenthOfTheMemory)
{
    connectSmall();
    camera.m_cacheFrameCount = 15;
    // A slot of 64 bytes with its trailer and 256 bytes for what belongs to it.
    camera.m_availableMemory = [](std::uint64_t) {
        return std::uint64_t{16 * (64 + 8 + 256) - 16};
    };
    EXPECT_EQ(code(camera.startStream(0)), 1052U);
    EXPECT_THAT(log.lines(QtCriticalMsg), SizeIs(1));
    camera.m_availableMemory = [](std::uint64_t) { return std::uint64_t{16 * (64 + 8 + 256)}; };
    EXPECT_EQ(code(camera.startStream(0)), 0U);
}

TEST_F(Streaming, ARingThatMemoryCannotServeIsRefusedBeforeItIsTouched)
{
    connectSmall();
    camera.m_availableMemory = [](std::uint64_t) { return std::uint64_t{1'000'000'000}; };
    for (const int count : {4'000'000, std::numeric_limits<int>::max()}) {
        camera.m_cacheFrameCount = count;
        EXPECT_EQ(code(camera.startStream(0)), 1052U);
        EXPECT_THAT(log.lines(), SizeIs(1));
        EXPECT_THAT(log.lines(QtCriticalMsg), SizeIs(1));
        EXPECT_THAT(bus.callTexts(), IsEmpty());
        EXPECT_THAT(camera.m_frameBuffers, IsEmpty());
        EXPECT_THAT(camera.m_bufferLocks, IsEmpty());
        EXPECT_FALSE(camera.m_isStreaming);
        clearLogs();
    }
    camera.m_cacheFrameCount = 16;
    EXPECT_EQ(code(camera.startStream(0)), 0U);
    // What is there needs no more.
    camera.stopStream(0);
    camera.m_availableMemory = [](std::uint64_t) { return std::uint64_t{0}; };
    EXPECT_EQ(code(camera.startStream(0)), 0U);
    camera.stopStream(0);
    camera.m_cacheFrameCount = 17;
    EXPECT_EQ(code(camera.startStream(0)), 1052U);
}

/// A machine with room for 16 slots and a little more, to which they are free until they are
/// written.
std::uint64_t roomForSlots(std::uint64_t promised)
{
    constexpr std::uint64_t slot = 2 * imageWidth * imageHeight + 8 + 256;
    constexpr std::uint64_t room = 18 * slot;
    return room - std::min(room, promised);
}

TEST_F(Streaming, SlotsThatNoFrameHasFilledYetTakeUpMemory)
{
    Camera& device = connectSmall();
    camera.m_availableMemory = roomForSlots;
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    camera.stopStream(0);
    camera.m_cacheFrameCount = 32;
    EXPECT_EQ(code(camera.startStream(0)), 1052U);
    EXPECT_EQ(camera.m_frameBuffers.size(), 16);

    // Filled, they are no longer available to the kernel either.
    camera.m_cacheFrameCount = 16;
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    for (int i = 0; i < 16; ++i) {
        deliver(device);
    }
    camera.stopStream(0);
    camera.m_cacheFrameCount = 32;
    EXPECT_EQ(code(camera.startStream(0)), 0U);
}

TEST_F(Streaming, TheSlotsOfOneCameraAreNotThereForAnother)
{
    bus.addCamera(1, 2, imageWidth, imageHeight);
    bus.addCamera(2, 2, imageWidth, imageHeight);
    enumerate();
    const auto started = [](CameraProbe& probe, int index) {
        probe.m_availableMemory = roomForSlots;
        EXPECT_EQ(code(probe.connectDeviceByIndex(index)), 0U);
        return code(probe.startStream(0));
    };
    {
        CameraProbe first;
        EXPECT_EQ(started(first, 0), 0U);
        EXPECT_EQ(started(camera, 1), 1052U);
    }
    EXPECT_EQ(code(camera.startStream(0)), 0U);
}

TEST_F(Streaming, TheHugestRingIsRefusedOnThisMachineToo)
{
    connect(2, 1280, 1024);
    camera.m_cacheFrameCount = std::numeric_limits<int>::max();
    EXPECT_EQ(code(camera.startStream(0)), 1052U);
    EXPECT_THAT(log.lines(QtCriticalMsg), SizeIs(1));
    EXPECT_THAT(camera.m_frameBuffers, IsEmpty());
}

TEST_F(Streaming, FramesThatFillLibuvcsBufferExactlyAreStreamed)
{
    connect(2, 4096, 2048); // 16 MiB
    camera.m_cacheFrameCount = 1;
    EXPECT_EQ(code(camera.startStream(0)), 0U);
}

// The cache size

TEST_F(Streaming, ResizingTheCacheWaitsForNoFrame)
{
    connectSmall();
    camera.m_grabTimeout = -1;
    camera.m_frameIndexQueue.append({0, 1});
    int count = 20;
    EXPECT_TRUE(camera.cacheFrameCountIO(false, count));
    EXPECT_EQ(camera.m_cacheFrameCount, 20);
    EXPECT_THAT(camera.m_frameIndexQueue, IsEmpty());
    EXPECT_THAT(log.lines(), ElementsAre(LogLine{QtDebugMsg, "default", " flag: false"}));
}

TEST_F(Streaming, OfTwoThreadsThatResizeTheCacheNeitherWaitsForAFrame)
{
    class Meeting : public CameraProbe
    {
    public:
        ErrorCode discardFrames(signed char selector) override
        {
            if (discards.fetch_add(1) == 0) {
                while (!otherHasResized) {
                    std::this_thread::yield();
                }
                return CZRNCamera::discardFrames(selector);
            }
            return ErrorCode::Success;
        }
        std::atomic<int> discards = 0;
        std::atomic<bool> otherHasResized = false;
    };
    Meeting meeting;
    connect(meeting, 2, imageWidth, imageHeight);
    meeting.m_grabTimeout = 20000;
    const auto start = std::chrono::steady_clock::now();
    std::thread first([&] {
        int count = 20;
        EXPECT_TRUE(meeting.cacheFrameCountIO(false, count));
    });
    while (meeting.discards == 0) {
        std::this_thread::yield();
    }
    int count = 21;
    EXPECT_TRUE(meeting.cacheFrameCountIO(false, count));
    meeting.otherHasResized = true;
    first.join();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST_F(Streaming, TheCacheSizeIsReadAndWrittenWhileStopped)
{
    class CountingCamera : public CameraProbe
    {
    public:
        ErrorCode discardFrames(signed char selector) override
        {
            selectors.push_back(selector);
            return ErrorCode::Success;
        }
        std::vector<int> selectors;
    };
    CountingCamera counting;
    int count = 5;
    EXPECT_FALSE(counting.cacheFrameCountIO(true, count));
    EXPECT_FALSE(counting.cacheFrameCountIO(false, count));
    connect(counting, 2, imageWidth, imageHeight);

    EXPECT_TRUE(counting.cacheFrameCountIO(true, count));
    EXPECT_EQ(count, 16);
    EXPECT_TRUE(counting.cacheFrameCountIO(false, count));
    EXPECT_THAT(counting.selectors, IsEmpty());
    count = 20;
    EXPECT_TRUE(counting.cacheFrameCountIO(false, count));
    EXPECT_THAT(counting.selectors, ElementsAre(0));
    EXPECT_EQ(counting.m_cacheFrameCount, 20);
    EXPECT_EQ(counting.m_frameBuffers.size(), 0);

    for (int refused : {0, -1, std::numeric_limits<int>::min()}) {
        EXPECT_FALSE(counting.cacheFrameCountIO(true, refused));
        EXPECT_FALSE(counting.cacheFrameCountIO(false, refused));
    }
    EXPECT_EQ(counting.m_cacheFrameCount, 20);

    ASSERT_EQ(code(counting.startStream(0)), 0U);
    EXPECT_EQ(counting.m_frameBuffers.size(), 20);
    count = 1;
    EXPECT_FALSE(counting.cacheFrameCountIO(true, count));
    EXPECT_FALSE(counting.cacheFrameCountIO(false, count));
    EXPECT_EQ(count, 1);
    EXPECT_EQ(counting.m_cacheFrameCount, 20);
}

TEST_F(Streaming, TheCacheSizeStaysWhereTheStreamWasStartedDuringTheWait)
{
    class RestartingCamera : public CameraProbe
    {
    public:
        ErrorCode discardFrames(signed char selector) override { return startStream(selector); }
    };
    RestartingCamera restarting;
    Camera& device = connect(restarting, 2, imageWidth, imageHeight);
    int count = 17;
    EXPECT_FALSE(restarting.cacheFrameCountIO(false, count));
    EXPECT_EQ(restarting.m_cacheFrameCount, 16);
    for (int i = 0; i < 17; ++i) {
        deliver(device);
    }
    EXPECT_EQ(restarting.m_writeIndex, 1);
}

// Frames that do not fit

TEST_F(Streaming, AReconnectedObjectKeepsItsRingAndSaysSo)
{
    connect(camera, 2, imageWidth, imageHeight);
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    ASSERT_EQ(code(camera.disconnectDevice()), 0U);
    const QList<unsigned char*> buffers = camera.m_frameBuffers;
    bus.unplugAll();

    Camera& larger = connect(camera, 2, 2 * imageWidth, imageHeight);
    EXPECT_EQ(code(camera.startStream(0)), 0U);
    EXPECT_EQ(camera.m_frameBuffers, buffers);
    // 64 bytes were enough for each frame, now it takes 128.
    EXPECT_THAT(log.lines(), SizeIs(1));
    EXPECT_THAT(log.lines(QtCriticalMsg), SizeIs(1));
    EXPECT_THAT(log.lines().front().text, AllOf(HasSubstr(" 128"), HasSubstr(" 64")));

    clearLogs();
    std::vector<unsigned char> data(static_cast<std::size_t>(4 * imageWidth * imageHeight), 1);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(bus.deliver(larger, 2 * imageWidth, imageHeight, data));
    }
    EXPECT_THAT(log.lines(), SizeIs(1));
    EXPECT_THAT(log.lines(QtCriticalMsg), SizeIs(1));
    EXPECT_THAT(camera.m_frameIndexQueue, IsEmpty());
    EXPECT_EQ(camera.m_writeIndex, 0);

    // Each start says it again.
    camera.stopStream(0);
    clearLogs();
    EXPECT_EQ(code(camera.startStream(0)), 0U);
    EXPECT_THAT(log.lines(QtCriticalMsg), SizeIs(1));
    EXPECT_TRUE(bus.deliver(larger, 2 * imageWidth, imageHeight, data));
    EXPECT_THAT(log.lines(QtCriticalMsg), SizeIs(2));
}

TEST_F(Streaming, AReconnectedObjectServesSmallerFrames)
{
    connect(camera, 2, 2 * imageWidth, imageHeight);
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    ASSERT_EQ(code(camera.disconnectDevice()), 0U);
    bus.unplugAll();
    Camera& smaller = connect(camera, 2, imageWidth, imageHeight);
    EXPECT_EQ(code(camera.startStream(0)), 0U);
    EXPECT_THAT(log.lines(), IsEmpty());
    deliver(smaller);
    QList<CameraSpace::ImageBlock*> images;
    EXPECT_EQ(code(camera.grabImage(images)), 0U);
    ASSERT_EQ(images.size(), 2);
    EXPECT_EQ(images[0]->data.size(), imageWidth * imageHeight + 8);
    qDeleteAll(images);
}

TEST_F(Streaming, NewSlotsFitTheLargerFramesThatOldOnesDoNot)
{
    connect(camera, 2, imageWidth, imageHeight);
    camera.m_cacheFrameCount = 1;
    ASSERT_EQ(code(camera.startStream(0)), 0U);
    ASSERT_EQ(code(camera.disconnectDevice()), 0U);
    bus.unplugAll();
    Camera& larger = connect(camera, 2, 2 * imageWidth, imageHeight);
    camera.m_cacheFrameCount = 2;
    EXPECT_EQ(code(camera.startStream(0)), 0U);
    EXPECT_THAT(log.lines(QtCriticalMsg), SizeIs(1));
    camera.m_writeIndex = 1;
    std::vector<unsigned char> data(static_cast<std::size_t>(4 * imageWidth * imageHeight), 1);
    EXPECT_TRUE(bus.deliver(larger, 2 * imageWidth, imageHeight, data));
    EXPECT_THAT(camera.m_frameIndexQueue, ElementsAre(1));
}

TEST_F(Streaming, FramesOfMoreThan31BitsAreRefused)
{
    Camera& device = connect(2, 65535, 65535);
    EXPECT_EQ(code(camera.startStream(0)), 1052U);
    EXPECT_THAT(log.lines(), SizeIs(1));
    EXPECT_THAT(log.lines(QtCriticalMsg), SizeIs(1));
    EXPECT_THAT(bus.callTexts(), IsEmpty());
    EXPECT_THAT(camera.m_frameBuffers, IsEmpty());
    EXPECT_FALSE(camera.m_isStreaming);

    // One row less than 2^31 bytes, and no memory for sixteen of them is needed.
    device.formats = {{UVC_VS_FORMAT_UNCOMPRESSED, {{32768, 32768}}}};
    ASSERT_EQ(code(camera.reconnectDevice()), 0U);
    clearLogs();
    EXPECT_EQ(code(camera.startStream(0)), 1052U);
    EXPECT_THAT(log.lines(QtCriticalMsg), SizeIs(1));
}

TEST_F(Streaming, DegenerateSizesStreamWithoutHarm)
{
    for (const auto& [width, height] : std::vector<std::pair<int, int>>{
             {0, 0}, {0, 65535}, {65535, 0}, {1, 1}, {1, 65535}, {65535, 1}, {2, 1}, {1, 2}}) {
        CameraProbe probe;
        Camera& device = connect(probe, 2, width, height);
        probe.m_cacheFrameCount = 2;
        ASSERT_EQ(code(probe.startStream(0)), 0U);
        for (const int type : everySensor()) {
            probe.m_sensorType = type;
            std::vector<unsigned char> data(static_cast<std::size_t>(2 * width * height), 0x30);
            ASSERT_TRUE(bus.deliver(device, width, height, data));
            QList<CameraSpace::ImageBlock*> images;
            EXPECT_EQ(code(probe.grabImage(images)), 0U);
            ASSERT_EQ(images.size(), sensorTypeOf(type).layout == FrameLayout::Single ? 1 : 2);
            for (const CameraSpace::ImageBlock* image : images) {
                EXPECT_EQ(image->data.size(), width * height + 8);
            }
            qDeleteAll(images);
        }
        bus.unplugAll();
    }
}
