// Every image is of the camera, the size and the moment that its host takes it for.

#include "driver_test.h"
#include "watched_thread.h"

#include <QMutexLocker>

#include <atomic>
#include <thread>

using CameraSpace::ImageBlock;
using fakeuvc::Camera;
using testing::AnyOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

namespace
{

class FrameIdentity : public DriverTest
{
protected:
    FrameIdentity() { camera.m_grabTimeout = 0; }

    void start() { ASSERT_EQ(code(camera.startStream(0)), 0U); }
    void restart()
    {
        ASSERT_EQ(code(camera.stopStream(0)), 0U);
        start();
    }
    /// Sends a frame whose bytes all have one value.
    void deliver(const Camera& device, int value, int frameWidth = imageWidth,
                 int frameHeight = imageHeight)
    {
        std::vector<unsigned char> data(static_cast<std::size_t>(2 * frameWidth * frameHeight),
                                        static_cast<unsigned char>(value));
        ASSERT_TRUE(bus.deliver(device, frameWidth, frameHeight, data));
    }
    /// The value of the next frame, or minus the code of a grab that fails.
    int grab()
    {
        QList<ImageBlock*> images;
        const unsigned result = code(camera.grabImage(images));
        const int value = result == 0U ? static_cast<unsigned char>(images.front()->data.at(0))
                                       : -static_cast<int>(result);
        qDeleteAll(images);
        return value;
    }
    std::vector<int> grabAll()
    {
        std::vector<int> values;
        for (int value = grab(); value >= 0; value = grab()) {
            values.push_back(value);
        }
        return values;
    }
    /// Hands a frame over as a stream does that the bus knows nothing of.
    void trigger(int value)
    {
        std::vector<unsigned char> data(std::size_t{2} * imageWidth * imageHeight,
                                        static_cast<unsigned char>(value));
        uvc_frame_t frame{};
        frame.data = data.data();
        frame.data_bytes = data.size();
        frame.width = imageWidth;
        frame.height = imageHeight;
        CZRNCamera::frameTriggered(&frame, &camera);
    }
    Camera& replaceBy(int sensorType, int frameWidth, int frameHeight)
    {
        camera.stopStream(0);
        EXPECT_EQ(code(camera.disconnectDevice()), 0U);
        bus.unplugAll();
        return connect(camera, sensorType, frameWidth, frameHeight);
    }
};

} // namespace

TEST_F(FrameIdentity, AnotherCamerasFramesAreNotDelivered)
{
    Camera& first = connect(2, imageWidth, imageHeight);
    start();
    for (int value = 0; value < 12; ++value) {
        deliver(first, value);
    }
    Camera& second = replaceBy(7, imageWidth, imageHeight);
    EXPECT_THAT(camera.m_frameIndexQueue, IsEmpty());
    start();
    EXPECT_EQ(grab(), -1034);
    deliver(second, 99);
    EXPECT_THAT(grabAll(), ElementsAre(99));
}

TEST_F(FrameIdentity, AnotherCamerasFramesOfTheSameKindAreNotDeliveredEither)
{
    Camera& first = connect(2, imageWidth, imageHeight);
    start();
    deliver(first, 1);
    Camera& second = replaceBy(2, imageWidth, imageHeight);
    start();
    EXPECT_EQ(grab(), -1034);
    deliver(second, 99);
    EXPECT_THAT(grabAll(), ElementsAre(99));
}

TEST_F(FrameIdentity, SlotsThatNoCameraFilledAreNotDelivered)
{
    connect(2, imageWidth, imageHeight);
    start();
    camera.m_frameIndexQueue.append({0, 1, 2});
    EXPECT_EQ(grab(), -1034);
}

TEST_F(FrameIdentity, LargeThenSmallThenLargeDeliversOnlyWhatWasSent)
{
    camera.m_cacheFrameCount = 2;
    Camera& large = connect(2, 2 * imageWidth, imageHeight);
    start();
    deliver(large, 1, 2 * imageWidth);
    Camera& small = replaceBy(2, imageWidth, imageHeight);
    camera.m_cacheFrameCount = 4;
    start();
    for (int value = 0; value < 4; ++value) {
        deliver(small, 10 + value);
    }
    Camera& again = replaceBy(2, 2 * imageWidth, imageHeight);
    start();
    EXPECT_EQ(grab(), -1034);
    deliver(again, 20, 2 * imageWidth);
    EXPECT_THAT(grabAll(), ElementsAre(20));
}

TEST_F(FrameIdentity, UnreadFramesSurviveARestartInTheirOrder)
{
    Camera& device = connect(2, imageWidth, imageHeight);
    start();
    for (const int value : {10, 11, 12, 13, 14, 15}) {
        deliver(device, value);
    }
    for (int value = 10; value < 14; ++value) {
        EXPECT_EQ(grab(), value);
    }
    restart();
    EXPECT_THAT(camera.m_frameIndexQueue, SizeIs(2));
    for (const int value : {20, 21, 22, 23}) {
        deliver(device, value);
    }
    restart();
    // These take the slots of 20 and 21, which are not the oldest.
    for (const int value : {24, 25}) {
        deliver(device, value);
    }
    EXPECT_THAT(grabAll(), ElementsAre(14, 15, 22, 23, 24, 25));
}

TEST_F(FrameIdentity, RestartsDoNotMakeTheQueueOutgrowTheRing)
{
    Camera& device = connect(2, imageWidth, imageHeight);
    start();
    int value = 0;
    for (int round = 0; round < 20; ++round) {
        for (int i = 0; i < 4 + 5 * round % 11; ++i) {
            deliver(device, value++);
        }
        grab();
        grab();
        restart();
        EXPECT_LE(camera.m_frameIndexQueue.size(), 16);
    }
    const std::vector<int> frames = grabAll();
    EXPECT_TRUE(std::ranges::is_sorted(frames));
    EXPECT_LE(frames.size(), 16U);
    EXPECT_EQ(frames.back(), value - 1);
}

TEST_F(FrameIdentity, AReconnectionToTheSameGeometryKeepsTheFrames)
{
    Camera& device = connect(2, imageWidth, imageHeight);
    start();
    deliver(device, 5);
    EXPECT_EQ(code(camera.reconnectDevice()), 0U);
    EXPECT_THAT(grabAll(), ElementsAre(5));
}

TEST_F(FrameIdentity, AReconnectionToAnotherSensorTypeDropsTheFrames)
{
    Camera& device = connect(2, imageWidth, imageHeight);
    start();
    deliver(device, 5);
    device[fakeuvc::Control::Contrast].current = 7;
    EXPECT_EQ(code(camera.reconnectDevice()), 0U);
    EXPECT_EQ(grab(), -1034);
    deliver(device, 6);
    EXPECT_THAT(grabAll(), ElementsAre(6));
}

TEST_F(FrameIdentity, AFrameIsDroppedWhereTheSensorTypeChangesWhileItIsStored)
{
    Camera& device = connect(2, imageWidth, imageHeight);
    start();
    device[fakeuvc::Control::Contrast].current = 7;
    QMutex* const slotLock = camera.m_bufferLocks.at(0);
    slotLock->lock();
    WatchedThread stream([this] { trigger(5); });
    EXPECT_TRUE(stream.waitsForOthers());
    EXPECT_EQ(code(camera.reconnectDevice()), 0U);
    slotLock->unlock();
    stream.join();
    EXPECT_THAT(camera.m_frameIndexQueue, IsEmpty());
    deliver(device, 6);
    EXPECT_THAT(grabAll(), ElementsAre(6));
}

// Or else a grab would wait for a slot only to find another frame in it.
TEST_F(FrameIdentity, AFrameLeavesTheQueueBeforeItIsOverwritten)
{
    Camera& device = connect(2, imageWidth, imageHeight);
    camera.m_cacheFrameCount = 2;
    start();
    deliver(device, 1);
    deliver(device, 2);
    QMutex* const slotLock = camera.m_bufferLocks.at(0);
    slotLock->lock();
    WatchedThread stream([this] { trigger(3); });
    EXPECT_TRUE(stream.waitsForOthers());
    {
        const QMutexLocker queue(&camera.m_frameMutex);
        EXPECT_THAT(camera.m_frameIndexQueue, ElementsAre(1));
    }
    slotLock->unlock();
    stream.join();
    EXPECT_THAT(grabAll(), ElementsAre(2, 3));
}

// As where one stream could not be stopped and another was started.
TEST_F(FrameIdentity, TwoStreamsInOneSlotQueueItOnce)
{
    connect(2, imageWidth, imageHeight);
    start();
    QMutex* const slotLock = camera.m_bufferLocks.at(0);
    slotLock->lock();
    WatchedThread one([this] { trigger(1); });
    WatchedThread other([this] { trigger(2); });
    EXPECT_TRUE(one.waitsForOthers());
    EXPECT_TRUE(other.waitsForOthers());
    slotLock->unlock();
    one.join();
    other.join();
    EXPECT_THAT(camera.m_frameIndexQueue, ElementsAre(0));
    EXPECT_EQ(camera.m_writeIndex, 1);
}

TEST_F(FrameIdentity, AReconnectionToAnotherSizeDropsTheFrames)
{
    for (const auto& [w, h] : {std::pair(imageHeight, imageWidth),
                               {imageWidth, 2 * imageHeight},
                               {2 * imageWidth, imageHeight}}) {
        Camera& device = connect(2, imageWidth, imageHeight);
        start();
        deliver(device, 5);
        device.formats = {{UVC_VS_FORMAT_UNCOMPRESSED, {{w, h}}}};
        EXPECT_EQ(code(camera.reconnectDevice()), 0U);
        EXPECT_EQ(grab(), -1034);
        camera.disconnectDevice();
        bus.unplugAll();
    }
}

TEST_F(FrameIdentity, GeometryFormatAndTypeChangeInOneStep)
{
    Camera& device = connect(2, 640, 960);
    ASSERT_EQ(camera.m_imageHeight, 1024);
    camera.m_cacheFrameCount = 1;
    start();
    std::vector<unsigned char> data(std::size_t{1280} * 1024, 3);
    ASSERT_TRUE(bus.deliver(device, 1280, 1024, data));

    // While the new sensor type is being read, everything is as it was.
    device.formats = {{UVC_VS_FORMAT_UNCOMPRESSED, {{imageWidth, imageHeight}}}};
    bool seen = false;
    bus.setHook([&](const fakeuvc::Call& call) {
        if (call.function != "uvc_get_contrast") {
            return;
        }
        seen = true;
        unsigned w = 0;
        unsigned h = 0;
        EXPECT_EQ(code(camera.getMaxImageSize(w, h, 0)), 0U);
        EXPECT_EQ(w, 1280U);
        EXPECT_EQ(h, 1024U);
        QList<ImageBlock*> images;
        EXPECT_EQ(code(camera.grabImage(images)), 0U);
        ASSERT_EQ(images.size(), 1);
        EXPECT_EQ(images.front()->data.size(), 1280 * 1024 + 8);
        qDeleteAll(images);
    });
    EXPECT_EQ(code(camera.reconnectDevice()), 0U);
    EXPECT_TRUE(seen);
    EXPECT_EQ(camera.m_imageWidth, imageWidth);
    EXPECT_EQ(camera.m_sensorType, 2);
}

TEST_F(FrameIdentity, NobodySeesTheSizeBeforeItIsStreamed)
{
    connect(2, 640, 960);
    std::atomic<bool> done = false;
    std::thread reader([&] {
        while (!done) {
            unsigned w = 0;
            unsigned h = 0;
            camera.getMaxImageSize(w, h, 0);
            ASSERT_EQ(w, 1280U);
            ASSERT_EQ(h, 1024U);
        }
    });
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(code(camera.reconnectDevice()), 0U);
    }
    done = true;
    reader.join();
}

TEST_F(FrameIdentity, AFrameOverwrittenBeforeItIsReadIsPassedOver)
{
    Camera& device = connect(2, imageWidth, imageHeight);
    camera.m_cacheFrameCount = 2;
    camera.m_grabTimeout = 60000;
    start();
    int value = 0;
    for (int round = 0; round < 30; ++round) {
        const int index = camera.m_writeIndex;
        deliver(device, ++value); // this one may be overwritten
        deliver(device, ++value);
        QMutex* const slotLock = camera.m_bufferLocks.at(index);
        slotLock->lock();
        int grabbed = 0;
        WatchedThread grabber([&] { grabbed = grab(); });
        EXPECT_TRUE(grabber.waitsForOthers());
        {
            const QMutexLocker queue(&camera.m_frameMutex);
            EXPECT_FALSE(camera.m_frameIndexQueue.contains(index));
        }
        // Mostly this thread has the slot again before the grabber wakes.
        slotLock->unlock();
        deliver(device, ++value);
        grabber.join();
        EXPECT_THAT(grabbed, AnyOf(value - 2, value - 1));
        if (grabbed == value - 2) {
            EXPECT_EQ(grab(), value - 1);
        }
        EXPECT_EQ(grab(), value);
        EXPECT_THAT(camera.m_frameIndexQueue, IsEmpty());
    }
}

TEST_F(FrameIdentity, AFrameWithoutDataIsDroppedAsOneOfAWrongSize)
{
    connect(2, imageWidth, imageHeight);
    start();
    clearLogs();
    uvc_frame_t frame{};
    frame.data_bytes = std::size_t{2} * imageWidth * imageHeight;
    frame.width = imageWidth;
    frame.height = imageHeight;
    CZRNCamera::frameTriggered(&frame, &camera);
    EXPECT_THAT(log.lines(), ElementsAre(criticalLine(" frame size is error  64 , size: 64")));
    EXPECT_EQ(grab(), -1034);
}

TEST_F(FrameIdentity, AStreamThatAnEnumerationClosedCountsAsStopped)
{
    connect(2, imageWidth, imageHeight);
    start();
    enumerate();
    EXPECT_EQ(code(camera.startStream(0)), 1052U);
    EXPECT_THAT(log.lines(), Not(Contains(infoLine(" the image stream is started"))));
    EXPECT_FALSE(camera.m_isStreaming);
    EXPECT_EQ(grab(), -1033);
}

// A slot of 72 bytes holds 64 and a trailer, or 72 without one.
TEST_F(FrameIdentity, ASlotNeedsRoomForTheTrailer)
{
    connect(2, imageWidth, imageHeight);
    start();
    Camera& larger = replaceBy(2, imageWidth + 1, imageHeight);
    start();
    clearLogs();
    deliver(larger, 1, imageWidth + 1);
    EXPECT_THAT(log.lines(),
                ElementsAre(criticalLine(
                    " frame does not fit the cache, frame size: 72 , cache size: 64")));
    EXPECT_EQ(grab(), -1034);
}

// What a stream that cannot be stopped still delivers

TEST_F(FrameIdentity, AnAbandonedStreamsFrameIsDroppedWhereItsCameraIsGone)
{
    auto probe = std::make_unique<CameraProbe>();
    Camera& device = connect(*probe, 2, imageWidth, imageHeight);
    ASSERT_EQ(code(probe->startStream(0)), 0U);
    const auto stream = bus.stream(device);
    ASSERT_TRUE(stream);
    probe.reset();
    clearLogs();
    std::vector<unsigned char> data(std::size_t{2} * imageWidth * imageHeight, 1);
    uvc_frame_t frame{};
    frame.data = data.data();
    frame.data_bytes = data.size();
    frame.width = imageWidth;
    frame.height = imageHeight;
    stream->callback(&frame, stream->userPointer);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(FrameIdentity, DestroyingACameraWaitsForAnAbandonedStreamsCallback)
{
    auto probe = std::make_unique<CameraProbe>();
    connect(*probe, 2, imageWidth, imageHeight);
    ASSERT_EQ(code(probe->startStream(0)), 0U);
    std::vector<unsigned char> data(std::size_t{2} * imageWidth * imageHeight, 1);
    QMutex& slot = *probe->m_bufferLocks.first();
    slot.lock(); // holds the callback
    // Not through the bus, which waits for its callbacks as libuvc does.
    WatchedThread callback([&data, target = static_cast<CZRNCamera*>(probe.get())] {
        uvc_frame_t frame{};
        frame.data = data.data();
        frame.data_bytes = data.size();
        frame.width = imageWidth;
        frame.height = imageHeight;
        CZRNCamera::frameTriggered(&frame, target);
    });
    EXPECT_TRUE(callback.waitsForOthers());
    WatchedThread destroyer([&] { probe.reset(); });
    EXPECT_TRUE(destroyer.waitsForOthers());
    slot.unlock();
    callback.join();
    destroyer.join();
}
