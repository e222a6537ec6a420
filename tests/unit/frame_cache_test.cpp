// What happens to a frame that libuvc hands over: checks, ring, trailer, queue and frame rate.

#include "driver_test.h"
#include "virtual_clock.h"

#include <QTime>

#include <cstring>
#include <limits>
#include <thread>

using testing::ElementsAre;
using testing::IsEmpty;
using namespace std::chrono_literals;

namespace
{

constexpr int frameSize = 2 * imageWidth * imageHeight;

class FrameCache : public DriverTest
{
protected:
    FrameCache()
    {
        connect(2, imageWidth, imageHeight);
        camera.m_cacheFrameCount = 4;
        clock.reset();
    }
    void TearDown() override
    {
        camera.stopStream(0);
        DriverTest::TearDown();
    }

    void start()
    {
        ASSERT_EQ(code(camera.startStream(0)), 0U);
        clearLogs();
    }

    /// Hands a frame over as libuvc does.
    void trigger(std::vector<unsigned char> data, int frameWidth = imageWidth,
                 int frameHeight = imageHeight)
    {
        uvc_frame_t frame{};
        frame.data = data.data();
        frame.data_bytes = data.size();
        frame.width = static_cast<std::uint32_t>(frameWidth);
        frame.height = static_cast<std::uint32_t>(frameHeight);
        CZRNCamera::frameTriggered(&frame, &camera);
    }
    void triggerFilled(unsigned char value)
    {
        trigger(std::vector<unsigned char>(frameSize, value));
    }

    std::vector<unsigned char> slot(int index) const
    {
        const unsigned char* buffer = camera.m_frameBuffers.at(index);
        return {buffer, buffer + frameSize};
    }
    std::uint64_t trailer(int index) const
    {
        std::uint64_t value = 0;
        std::memcpy(&value, camera.m_frameBuffers.at(index) + frameSize, sizeof(value));
        return value;
    }
    QList<int> queue() const { return camera.m_frameIndexQueue; }
    void expectNothingStored()
    {
        EXPECT_THAT(queue(), IsEmpty());
        EXPECT_EQ(camera.m_writeIndex, 0);
        EXPECT_EQ(camera.m_receivedFrameCount, 0);
        EXPECT_EQ(camera.m_fpsFrameCount, 0);
    }

    VirtualClock& clock = VirtualClock::instance();
};

} // namespace

TEST_F(FrameCache, NullPointersAreReported)
{
    start();
    uvc_frame_t frame{};
    CZRNCamera::frameTriggered(nullptr, &camera);
    CZRNCamera::frameTriggered(&frame, nullptr);
    CZRNCamera::frameTriggered(nullptr, nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(criticalLine(" frame or ptr is null"),
                                         criticalLine(" frame or ptr is null"),
                                         criticalLine(" frame or ptr is null")));
    expectNothingStored();
}

TEST_F(FrameCache, FramesAreDroppedSilentlyWhileNotStreaming)
{
    triggerFilled(1);
    trigger({}, 1, 1);
    start();
    camera.stopStream(0);
    clearLogs();
    triggerFilled(1);
    EXPECT_THAT(log.lines(), IsEmpty());
    expectNothingStored();
}

TEST_F(FrameCache, AFrameIsStoredWithItsTrailer)
{
    start();
    std::vector<unsigned char> data = frameOf(imageWidth, imageHeight, 2, 100);
    data[2] = 0x01;
    data[3] = 0x02;
    data[4] = 0x03;
    data[5] = 0x04;
    trigger(data);
    EXPECT_EQ(slot(0), data);
    EXPECT_EQ(trailer(0), 0x0000000004030201U);
    EXPECT_THAT(queue(), ElementsAre(0));
    EXPECT_EQ(camera.m_writeIndex, 1);
    EXPECT_EQ(camera.m_receivedFrameCount, 1);
    EXPECT_EQ(camera.m_fpsFrameCount, 1);
    EXPECT_THAT(log.lines(), ElementsAre(debugLine("frameTriggered receive img to  0 ( 0 )")));
}

TEST_F(FrameCache, TrailerBytesAreSignExtended)
{
    struct Case {
        std::array<unsigned char, 4> header;
        std::uint64_t expected;
    };
    start();
    for (const Case& c :
         {Case{{0x01, 0x02, 0x83, 0x04}, 0xFFFFFFFFFF830201U},
          Case{{0x80, 0x02, 0x03, 0x04}, 0xFFFFFFFFFFFFFF80U},
          Case{{0x01, 0xFF, 0x00, 0x00}, 0xFFFFFFFFFFFFFF01U},
          Case{{0x01, 0x02, 0x03, 0x84}, 0xFFFFFFFF84030201U},
          Case{{0x7F, 0x7F, 0x7F, 0x7F}, 0x000000007F7F7F7FU}, Case{{0x00, 0x00, 0x00, 0x00}, 0}}) {
        std::vector<unsigned char> data(frameSize, 0xEE);
        std::copy(c.header.begin(), c.header.end(), data.begin() + 2);
        const int index = camera.m_writeIndex;
        trigger(data);
        EXPECT_EQ(trailer(index), c.expected);
    }
}

TEST_F(FrameCache, AWrongResolutionIsDroppedAndReported)
{
    start();
    trigger(std::vector<unsigned char>(frameSize), imageWidth + 1, imageHeight);
    trigger(std::vector<unsigned char>(frameSize), imageWidth, imageHeight - 1);
    EXPECT_THAT(
        log.lines(),
        ElementsAre(
            criticalLine(
                " the resolution is error,current frame w: 9  h: 4  preset  frame w: 8  h: 4"),
            criticalLine(
                " the resolution is error,current frame w: 8  h: 3  preset  frame w: 8  h: 4")));
    expectNothingStored();
}

TEST_F(FrameCache, AWrongSizeIsDroppedAndReported)
{
    start();
    trigger(std::vector<unsigned char>(frameSize - 1));
    trigger(std::vector<unsigned char>(frameSize + 1));
    trigger({});
    EXPECT_THAT(log.lines(), ElementsAre(criticalLine(" frame size is error  64 , size: 63"),
                                         criticalLine(" frame size is error  64 , size: 65"),
                                         criticalLine(" frame size is error  64 , size: 0")));
    expectNothingStored();
}

TEST_F(FrameCache, TheExpectedSizeFollowsThePixelFormat)
{
    start();
    camera.m_pixelFormat = CameraSpace::PixelFormatType::Mono8;
    trigger(std::vector<unsigned char>(frameSize));
    EXPECT_THAT(log.lines(), ElementsAre(criticalLine(" frame size is error  32 , size: 64")));
    trigger(std::vector<unsigned char>(imageWidth * imageHeight, 7));
    EXPECT_THAT(queue(), ElementsAre(0));
    EXPECT_EQ(camera.m_frameBuffers.at(0)[imageWidth * imageHeight - 1], 7);
    EXPECT_EQ(camera.m_frameBuffers.at(0)[imageWidth * imageHeight], 7); // the trailer begins here
}

TEST_F(FrameCache, AWithdrawnFrameStaysWithdrawnWhenItsSuccessorIsRefused)
{
    start();
    for (int i = 0; i < 4; ++i) {
        triggerFilled(static_cast<unsigned char>(i));
    }
    EXPECT_THAT(queue(), ElementsAre(0, 1, 2, 3));
    trigger(std::vector<unsigned char>(frameSize - 1));
    EXPECT_THAT(queue(), ElementsAre(1, 2, 3));
    EXPECT_EQ(camera.m_writeIndex, 0);
    // A wrong resolution is found earlier.
    camera.m_writeIndex = 1;
    trigger(std::vector<unsigned char>(frameSize), imageWidth, imageHeight + 1);
    EXPECT_THAT(queue(), ElementsAre(1, 2, 3));
}

TEST_F(FrameCache, AnEntryIsWithdrawnWhereverItStands)
{
    start();
    camera.m_frameIndexQueue.append({2, 0, 1});
    trigger(std::vector<unsigned char>(frameSize - 1));
    EXPECT_THAT(queue(), ElementsAre(2, 0, 1)); // nothing is overwritten
    triggerFilled(1);
    EXPECT_THAT(queue(), ElementsAre(2, 1, 0));
}

TEST_F(FrameCache, TheNewestFramesWinTheirSlots)
{
    start();
    const int slots = 4;
    for (int count = 1; count <= 3 * slots + 2; ++count) {
        triggerFilled(static_cast<unsigned char>(count));
        EXPECT_EQ(camera.m_writeIndex, count % slots);
        EXPECT_EQ(queue().size(), std::min(count, slots));
    }
    // Frames 11 to 14 are left, oldest first.
    EXPECT_THAT(queue(), ElementsAre(2, 3, 0, 1));
    EXPECT_EQ(slot(2)[0], 11);
    EXPECT_EQ(slot(3)[0], 12);
    EXPECT_EQ(slot(0)[0], 13);
    EXPECT_EQ(slot(1)[0], 14);
}

TEST_F(FrameCache, SlotsOutsideTheRingAreRefusedSilently)
{
    start();
    for (const int index :
         {-1, 4, 1000, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        camera.m_writeIndex = index;
        triggerFilled(1);
        EXPECT_EQ(camera.m_writeIndex, index);
    }
    camera.m_writeIndex = 0;
    unsigned char* const buffer = camera.m_frameBuffers[0];
    camera.m_frameBuffers[0] = nullptr;
    triggerFilled(1);
    camera.m_frameBuffers[0] = buffer;
    EXPECT_THAT(log.lines(), IsEmpty());
    expectNothingStored();
}

TEST_F(FrameCache, TheFirstSixteenFramesAreLogged)
{
    start();
    std::vector<LogLine> expected;
    for (int i = 0; i < 20; ++i) {
        if (i < 16) {
            expected.push_back(debugLine("frameTriggered receive img to  " + std::to_string(i % 4) +
                                         " ( " + std::to_string(i) + " )"));
        }
        triggerFilled(1);
    }
    EXPECT_EQ(log.lines(), expected);
    EXPECT_EQ(camera.m_receivedFrameCount, 16);

    clearLogs();
    camera.m_grabTimeout = 1;
    camera.discardFrames(0);
    log.clear();
    triggerFilled(1);
    EXPECT_THAT(log.lines(), ElementsAre(debugLine("frameTriggered receive img to  0 ( 0 )")));
}

TEST_F(FrameCache, FramesAreCountedWhenDebugOutputIsOff)
{
    start();
    CameraProbe::m_category.setEnabled(QtDebugMsg, false);
    triggerFilled(1);
    triggerFilled(1);
    CameraProbe::m_category.setEnabled(QtDebugMsg, true);
    EXPECT_THAT(log.lines(), IsEmpty());
    EXPECT_EQ(camera.m_receivedFrameCount, 2);
}

TEST_F(FrameCache, TheRateIsMeasuredOverMoreThanASecond)
{
    start();
    for (int i = 0; i < 5; ++i) {
        triggerFilled(1);
    }
    EXPECT_EQ(camera.m_frameRate, 0.0);
    EXPECT_EQ(camera.m_fpsFrameCount, 5);

    const QTime begin = camera.m_fpsTimer;
    clock.advance(2000ms);
    triggerFilled(1);
    EXPECT_EQ(camera.m_frameRate, 6 * 1000.0 / 2000);
    EXPECT_EQ(camera.m_fpsFrameCount, 0);
    EXPECT_EQ(begin.msecsTo(camera.m_fpsTimer), 2000);

    clock.advance(500ms);
    triggerFilled(1);
    EXPECT_EQ(camera.m_frameRate, 6 * 1000.0 / 2000);
    EXPECT_EQ(camera.m_fpsFrameCount, 1);
}

TEST_F(FrameCache, TheRateIsMeasuredFromOneMillisecondBeyondASecondOn)
{
    start();
    clock.advance(1000ms);
    triggerFilled(1);
    EXPECT_EQ(camera.m_frameRate, 0.0);
    EXPECT_EQ(camera.m_fpsFrameCount, 1);
    clock.advance(1ms);
    triggerFilled(1);
    EXPECT_EQ(camera.m_frameRate, 2 * 1000.0 / 1001);
    EXPECT_EQ(camera.m_fpsFrameCount, 0);
}

TEST_F(FrameCache, TheRateIsMeasuredAcrossTheEndOfTheClocksDay)
{
    clock.advance(12h - 300ms);
    start();
    EXPECT_EQ(camera.m_fpsTimer, QTime(23, 59, 59, 700));
    clock.advance(1250ms);
    triggerFilled(1);
    EXPECT_EQ(camera.m_frameRate, 1 * 1000.0 / 1250);
    EXPECT_EQ(camera.m_fpsTimer, QTime(0, 0, 0, 950));
}

TEST_F(FrameCache, AStoredFrameWakesOneWaiter)
{
    start();
    camera.m_grabTimeout = 60000;
    std::vector<unsigned> results(2, 0);
    std::vector<std::thread> grabbers;
    for (unsigned& result : results) {
        grabbers.emplace_back([this, &result] {
            QList<CameraSpace::ImageBlock*> images;
            result = code(camera.grabImage(images));
            qDeleteAll(images);
        });
    }
    // Each grab takes one frame, whether it was waiting for it or found it queued.
    triggerFilled(1);
    triggerFilled(2);
    for (std::thread& grabber : grabbers) {
        grabber.join();
    }
    EXPECT_THAT(results, ElementsAre(0U, 0U));
    EXPECT_THAT(queue(), IsEmpty());
}
