// Taking cached frames: which slot, how long to wait, and what every refusal leaves behind.

#include "driver_test.h"
#include "watched_thread.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <thread>

using CameraSpace::ImageBlock;
using fakeuvc::Camera;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

constexpr std::size_t pixelCount = std::size_t{imageWidth} * imageHeight;

/// Blocks that are deleted with their list.
class Images : public QList<ImageBlock*>
{
public:
    Images() = default;
    ~Images() { qDeleteAll(*this); }
    Images(const Images&) = delete;
    Images& operator=(const Images&) = delete;
};

class Grabbing : public DriverTest
{
protected:
    Grabbing()
        : m_device(connect(-1, imageWidth, imageHeight))
    {
        camera.m_sensorType = -1;
        camera.m_cacheFrameCount = 8;
    }

    void start()
    {
        ASSERT_EQ(code(camera.startStream(0)), 0U);
        clearLogs();
        CameraProbe::m_category.setEnabled(QtDebugMsg, false);
    }
    void TearDown() override
    {
        CameraProbe::m_category.setEnabled(QtDebugMsg, true);
        DriverTest::TearDown();
    }
    /// Sends a frame whose bytes all have one value.
    void deliver(unsigned char value)
    {
        std::vector<unsigned char> data(2 * pixelCount, value);
        ASSERT_TRUE(bus.deliver(m_device, imageWidth, imageHeight, data));
    }
    static unsigned char firstPixel(const Images& images)
    {
        return static_cast<unsigned char>(images.front()->data.at(0));
    }
    void expectSlotsFree()
    {
        for (QMutex* lock : camera.m_bufferLocks) {
            EXPECT_TRUE(lock->tryLock());
            lock->unlock();
        }
        EXPECT_TRUE(camera.m_frameMutex.tryLock());
        camera.m_frameMutex.unlock();
    }

    Camera& m_device;
};

} // namespace

TEST_F(Grabbing, NeedsAStream)
{
    camera.m_grabTimeout = 60000;
    camera.m_frameIndexQueue.append(0);
    Images images;
    EXPECT_EQ(code(camera.grabImage(images)), 1033U);
    EXPECT_THAT(images, IsEmpty());
    EXPECT_THAT(camera.m_frameIndexQueue, ElementsAre(0));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(Grabbing, WaitsOnceForAFrame)
{
    start();
    camera.m_grabTimeout = 30;
    Images images;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(code(camera.grabImage(images)), 1034U);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(29));
    EXPECT_THAT(images, IsEmpty());
    EXPECT_THAT(log.lines(), ElementsAre(criticalLine("try lock grab event failed")));
    expectSlotsFree();
}

TEST_F(Grabbing, AWaitOfZeroOnlyLooks)
{
    start();
    camera.m_grabTimeout = 0;
    Images images;
    EXPECT_EQ(code(camera.grabImage(images)), 1034U);
    deliver(1);
    EXPECT_EQ(code(camera.grabImage(images)), 0U);
}

TEST_F(Grabbing, AFrameEndsTheWait)
{
    start();
    camera.m_grabTimeout = -1; // 4294967295 ms
    Images images;
    WatchedThread grabber([&] { EXPECT_EQ(code(camera.grabImage(images)), 0U); });
    EXPECT_TRUE(grabber.waitsForOthers());
    deliver(9);
    grabber.join();
    ASSERT_EQ(images.size(), 2);
    EXPECT_EQ(firstPixel(images), 9);
}

TEST_F(Grabbing, StoppingEndsEveryWaitAtOnce)
{
    for (const int timeout : {-1, 0x7fffffff, 60000}) {
        start();
        camera.m_grabTimeout = timeout;
        std::deque<WatchedThread> grabbers;
        for (int i = 0; i < 3; ++i) {
            grabbers.emplace_back([this] {
                Images images;
                EXPECT_EQ(code(camera.grabImage(images)), 1034U);
            });
            EXPECT_TRUE(grabbers.back().waitsForOthers());
        }
        EXPECT_EQ(code(camera.stopStream(0)), 0U);
        grabbers.clear();
        CameraProbe::m_category.setEnabled(QtDebugMsg, true);
    }
}

TEST_F(Grabbing, DisconnectingEndsTheWaitToo)
{
    start();
    camera.m_grabTimeout = -1;
    WatchedThread grabber([this] {
        Images images;
        EXPECT_EQ(code(camera.grabImage(images)), 1034U);
    });
    EXPECT_TRUE(grabber.waitsForOthers());
    EXPECT_EQ(code(camera.disconnectDevice()), 0U);
}

TEST_F(Grabbing, DestroyingTheCameraWaitsForAGrab)
{
    auto probe = std::make_unique<CameraProbe>();
    bus.unplugAll();
    Camera& device = connect(*probe, 2, imageWidth, imageHeight);
    ASSERT_EQ(code(probe->startStream(0)), 0U);
    std::vector<unsigned char> data(2 * pixelCount, 1);
    ASSERT_TRUE(bus.deliver(device, imageWidth, imageHeight, data));

    QMutex* slotLock = probe->m_bufferLocks.front();
    slotLock->lock();
    WatchedThread grabber([target = probe.get()] {
        Images images;
        // Not by the table of virtual functions, which the destructor writes without asking for a
        // lock.
        target->CZRNCamera::grabImage(images);
    });
    EXPECT_TRUE(grabber.waitsForOthers());
    WatchedThread destroyer([&probe] { probe.reset(); });
    EXPECT_TRUE(destroyer.waitsForOthers());
    slotLock->unlock();
}

TEST_F(Grabbing, TriggeredGrabsTakeTheOldestFrame)
{
    start();
    for (unsigned char i = 0; i < 6; ++i) {
        deliver(i);
    }
    camera.m_frameIndexQueue = {};
    camera.m_frameIndexQueue.append({3, 4, 5});
    for (const unsigned mode : {2U, 1U, 0xffffffffU}) {
        camera.m_triggerMode = static_cast<CameraSpace::TriggerMode>(mode);
        const int oldest = camera.m_frameIndexQueue.head();
        Images images;
        EXPECT_EQ(code(camera.grabImage(images)), 0U);
        EXPECT_EQ(firstPixel(images), oldest);
    }
    EXPECT_THAT(camera.m_frameIndexQueue, IsEmpty());
}

TEST_F(Grabbing, LiveGrabsTakeTheNewestFrameAndDropTheOthers)
{
    start();
    for (unsigned char i = 0; i < 6; ++i) {
        deliver(i);
    }
    camera.m_frameIndexQueue = {};
    camera.m_frameIndexQueue.append({3, 4, 5});
    camera.m_triggerMode = CameraSpace::TriggerMode::Newest;
    Images images;
    EXPECT_EQ(code(camera.grabImage(images)), 0U);
    EXPECT_EQ(firstPixel(images), 5);
    EXPECT_THAT(camera.m_frameIndexQueue, IsEmpty());
    expectSlotsFree();
}

TEST_F(Grabbing, AppendsToTheHostsList)
{
    start();
    deliver(1);
    deliver(2);
    Images images;
    EXPECT_EQ(code(camera.grabImage(images)), 0U);
    EXPECT_EQ(code(camera.grabImage(images)), 0U);
    ASSERT_EQ(images.size(), 4);
    EXPECT_EQ(images[0]->data.at(0), 1);
    EXPECT_EQ(images[2]->data.at(0), 2);
}

TEST_F(Grabbing, ImagesOutliveTheCameraAndMayBeDeletedInAnyThread)
{
    auto probe = std::make_unique<CameraProbe>();
    bus.unplugAll();
    Camera& device = connect(*probe, -1, imageWidth, imageHeight);
    ASSERT_EQ(code(probe->startStream(0)), 0U);
    auto images = std::make_unique<Images>();
    std::thread([&] {
        for (unsigned char value = 1; value <= 3; ++value) {
            std::vector<unsigned char> data(2 * pixelCount, value);
            EXPECT_TRUE(bus.deliver(device, imageWidth, imageHeight, data));
            EXPECT_EQ(code(probe->grabImage(*images)), 0U);
        }
    }).join();
    probe.reset();
    std::thread([&images] {
        ASSERT_EQ(images->size(), 6);
        images->back()->data.data()[0] = 9;
        EXPECT_EQ(images->at(4)->data.at(0), 3);
        EXPECT_EQ(images->back()->data.at(0), 9);
        images.reset();
    }).join();
}

TEST_F(Grabbing, ASlotKeepsItsFrameAfterAGrab)
{
    start();
    deliver(7);
    Images images;
    EXPECT_EQ(code(camera.grabImage(images)), 0U);
    EXPECT_EQ(camera.m_frameBuffers[0][0], 7);
    EXPECT_EQ(camera.m_writeIndex, 1);
}

TEST_F(Grabbing, WaitsForTheSlotsLock)
{
    start();
    deliver(7);
    camera.m_bufferLocks[0]->lock();
    WatchedThread grabber([this] {
        Images images;
        EXPECT_EQ(code(camera.grabImage(images)), 0U);
    });
    EXPECT_TRUE(grabber.waitsForOthers());
    // The queue is free meanwhile, so frames keep arriving.
    deliver(8);
    EXPECT_EQ(camera.m_frameBuffers[1][0], 8);
    camera.m_bufferLocks[0]->unlock();
}

TEST_F(Grabbing, AFrameThatCannotBeSplitIsLost)
{
    start();
    deliver(7);
    CameraNode* node = camera.m_currentNode;
    camera.m_currentNode = nullptr;
    Images images;
    EXPECT_EQ(code(camera.grabImage(images)), 1035U);
    camera.m_currentNode = node;
    EXPECT_THAT(images, IsEmpty());
    EXPECT_THAT(camera.m_frameIndexQueue, IsEmpty());
    expectSlotsFree();
}

TEST_F(Grabbing, ASlotWithoutABufferCannotBeSplit)
{
    start();
    camera.m_frameIndexQueue.append(0);
    unsigned char* const buffer = camera.m_frameBuffers[0];
    camera.m_frameBuffers[0] = nullptr;
    Images images;
    EXPECT_EQ(code(camera.grabImage(images)), 1035U);
    camera.m_frameBuffers[0] = buffer;
    for (const int index : {-1, 8, 1000}) {
        camera.m_frameIndexQueue.append(index);
        EXPECT_EQ(code(camera.grabImage(images)), 1035U);
    }
    EXPECT_THAT(images, IsEmpty());
    expectSlotsFree();
}

TEST_F(Grabbing, ASlotThatIsTooSmallCannotBeSplit)
{
    start();
    deliver(7);
    Images images;
    // A queued frame from before the camera was connected with larger ones.
    camera.m_imageWidth = imageWidth + 1;
    EXPECT_EQ(code(camera.grabImage(images)), 1035U);
    camera.m_imageWidth = imageWidth;

    // One byte for each position, while the sensor type reads two.
    camera.m_pixelFormat = CameraSpace::PixelFormatType::Mono8;
    std::vector<unsigned char> data(pixelCount, 1);
    ASSERT_TRUE(bus.deliver(m_device, imageWidth, imageHeight, data));
    EXPECT_EQ(code(camera.grabImage(images)), 1035U); // the slot was made for two
    camera.disconnectDevice();
    bus.unplugAll();
    CameraProbe small;
    Camera& device = connect(small, 5, imageWidth, imageHeight);
    small.m_pixelFormat = CameraSpace::PixelFormatType::Mono8;
    small.m_sensorType = 2;
    small.m_cacheFrameCount = 1;
    ASSERT_EQ(code(small.startStream(0)), 0U);
    ASSERT_TRUE(bus.deliver(device, imageWidth, imageHeight, data));
    EXPECT_EQ(code(small.grabImage(images)), 1035U);
    EXPECT_THAT(images, IsEmpty());
    small.m_sensorType = 5;
    ASSERT_TRUE(bus.deliver(device, imageWidth, imageHeight, data));
    EXPECT_EQ(code(small.grabImage(images)), 0U);
    EXPECT_EQ(images.size(), 1);
}

TEST_F(Grabbing, SendingAndGrabbingAtOnceDeliversWholeFrames)
{
    start();
    camera.m_grabTimeout = 20000;
    std::atomic<bool> isOver = false;
    std::thread sender([this, &isOver] {
        for (unsigned char value = 0; !isOver; ++value) {
            deliver(value);
        }
    });
    for (int i = 0; i < 500; ++i) {
        Images images;
        EXPECT_EQ(code(camera.grabImage(images)), 0U);
        ASSERT_EQ(images.size(), 2);
        const char value = images[0]->data.at(0);
        EXPECT_EQ(images[0]->data.left(pixelCount), QByteArray(pixelCount, value));
        EXPECT_EQ(images[1]->data.left(pixelCount), QByteArray(pixelCount, value));
    }
    isOver = true;
    sender.join();
}
