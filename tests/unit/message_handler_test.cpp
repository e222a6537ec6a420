// Message handlers that call the driver for each of its lines: none is written while a lock is
// held.

#include "driver_test.h"
#include "zrn_camera_factory.h"

#include <QRegularExpression>

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <mutex>
#include <set>
#include <thread>

namespace
{

constexpr std::chrono::seconds patience(5);

/// What is done for a line; null while nothing shall be done.
std::function<void(const QString& text)> onLine;
std::atomic<int> handlersRunning = 0;

thread_local bool isHandling = false;

void handle(QtMsgType, const QMessageLogContext&, const QString& text)
{
    if (isHandling || !onLine) {
        return; // the line of a call that a handler makes
    }
    isHandling = true;
    ++handlersRunning;
    onLine(text);
    --handlersRunning;
    isHandling = false;
}

/// Everything that takes a lock, on one camera.
void callEverything(CZRNCamera& camera)
{
    QMap<QString, QVariant> values;
    QList<CameraSpace::ImageBlock*> images;
    unsigned short gain = 0;
    camera.stopStream(0);
    camera.grabImage(images);
    qDeleteAll(images);
    camera.getGain(gain, 0);
    camera.setGain(gain, 0);
    camera.getProperty(QStringLiteral("Serial"), values);
    values[QStringLiteral("value")] = 1;
    camera.setProperty(QStringLiteral("MaxGrabWaitTime"), values);
    values[QStringLiteral("value")] = 12;
    camera.setProperty(QStringLiteral("CacheFrameCount"), values);
    camera.reconnectDevice();
    camera.disconnectDevice();
    camera.connectDeviceBySerial(QStringLiteral("ZR1"));
    camera.startStream(0);
}

class MessageHandler : public DriverTest
{
protected:
    MessageHandler()
    {
        first = &bus.addCamera(1, 2, imageWidth, imageHeight);
        bus.addCamera(2, 2, imageWidth, imageHeight);
        bus.setAfterDelivery({});
        m_before = qInstallMessageHandler(handle);
    }
    void TearDown() override
    {
        onLine = nullptr;
        while (handlersRunning > 0) {
            std::this_thread::yield();
        }
        qInstallMessageHandler(m_before);
        for (DeviceInterface* device : m_devices) {
            factory->deleteDevice(device);
        }
        factory.reset();
        // Handlers have enumerated as well.
        expectedLeaks = bus.outstanding();
        EXPECT_EQ(expectedLeaks.handles, 0);
        DriverTest::TearDown();
    }

    CZRNCamera& makeCamera()
    {
        m_devices.push_back(factory->createDevice());
        return dynamic_cast<CZRNCamera&>(*m_devices.back());
    }

    /// Lets the driver say most of what it can say.
    void runScenario(CZRNCamera& used)
    {
        QMap<QString, QVariant> values;
        QList<CameraSpace::ImageBlock*> images;
        factory->enumDevice();
        factory->setProperty(IFactory::devicesProperty,
                             QStringList{QStringLiteral("no place"), QStringLiteral("1-1")});
        factory->enumDevice();
        factory->setProperty(IFactory::devicesProperty, QStringList());
        factory->enumDevice();
        used.connectDeviceByIndex(0);
        used.disconnectDevice();
        factory->enumDevice();
        used.connectDeviceBySerial(QStringLiteral("ZR1"));
        used.reconnectDevice();
        for (const char* function :
             {"uvc_get_contrast", "uvc_get_brightness", "uvc_set_brightness", "uvc_get_gain",
              "uvc_set_gain", "uvc_start_streaming", "uvc_get_stream_ctrl_format_size"}) {
            bus.fail({.function = function});
            unsigned int exposure = 0;
            unsigned short gain = 0;
            used.getExposureTimeRange(exposure, exposure, 0);
            used.setExposureTime(20, 0);
            used.getExposureTime(exposure, 0);
            used.setGain(20, 0);
            used.getGain(gain, 0);
            used.executeCommand(QStringLiteral("ClearState"), values);
            used.startStream(0);
            used.stopStream(0);
            bus.clearFailures();
        }
        int index = 0;
        used.readResolutionList(values);
        used.resolutionIndexIO(true, index);
        used.getProperty(QStringLiteral("Serial"), values);
        values[QStringLiteral("value")] = 1;
        used.setProperty(QStringLiteral("MaxGrabWaitTime"), values);
        used.startStream(0);
        used.startStream(0);
        for (const int size : {2 * imageWidth * imageHeight, 1}) {
            std::vector<unsigned char> data(static_cast<std::size_t>(size), 1);
            bus.deliver(*first, imageWidth, imageHeight, data);
            bus.deliver(*first, imageWidth + 1, imageHeight, data);
        }
        used.discardFrames(0);
        used.grabImage(images);
        qDeleteAll(images);
        used.stopStream(0);
        DeviceInterface* device = factory->createDevice();
        device->connectDeviceBySerial(QStringLiteral("ZR2"));
        factory->deleteDevice(device);
        used.disconnectDevice();
        Operation::awaitStreamLines();
    }

    std::unique_ptr<CZRNCameraFactory> factory = std::make_unique<CZRNCameraFactory>();
    fakeuvc::Camera* first = nullptr;

private:
    std::vector<DeviceInterface*> m_devices;
    QtMessageHandler m_before = nullptr;
};

} // namespace

TEST_F(MessageHandler, FindsNoLockHeldFromAnotherThread)
{
    CZRNCamera& used = makeCamera();
    CZRNCamera& other = makeCamera();
    std::mutex mutex;
    std::set<QString> seen;
    std::set<QString> stuck;
    onLine = [&](const QString& text) {
        {
            // Each line once, without its numbers: a call waits for the camera's pauses.
            const std::lock_guard lock(mutex);
            QString kind = text;
            kind.remove(QRegularExpression(QStringLiteral("[0-9]")));
            if (!seen.insert(kind).second) {
                return;
            }
        }
        std::promise<void> done;
        std::future<void> isDone = done.get_future();
        std::thread caller([&, done = std::move(done)]() mutable {
            isHandling = true;
            for (CZRNCamera* each : {&used, &other}) {
                callEverything(*each);
            }
            factory->enumDevice();
            DeviceInterface* device = factory->createDevice();
            factory->deleteDevice(device);
            done.set_value();
        });
        if (isDone.wait_for(patience) != std::future_status::ready) {
            const std::lock_guard lock(mutex);
            stuck.insert(text);
            caller.detach();
            return;
        }
        caller.join();
    };
    runScenario(used);
    EXPECT_GT(seen.size(), 15U);
    for (const QString& text : stuck) {
        ADD_FAILURE() << "a lock is held for: " << text.toStdString();
    }
    if (!stuck.empty()) {
        std::abort(); // threads are stuck in the driver
    }
}

TEST_F(MessageHandler, MayCallTheDriverItself)
{
    CZRNCamera& used = makeCamera();
    CZRNCamera& other = makeCamera();
    std::atomic<int> calls = 0;
    onLine = [&](const QString&) {
        if (calls++ % 4 == 0) {
            callEverything(used);
            callEverything(other);
            factory->enumDevice();
        }
    };
    runScenario(used);
    EXPECT_GT(calls, 15);
}

TEST_F(MessageHandler, MayDeleteTheCameraThatTheLineIsAbout)
{
    factory->enumDevice();
    DeviceInterface* device = factory->createDevice();
    ASSERT_EQ(code(device->connectDeviceBySerial("ZR1")), 0U);
    ASSERT_EQ(code(dynamic_cast<CameraInterface&>(*device).startStream(0)), 0U);
    std::atomic<bool> isDeleted = false;
    onLine = [&](const QString& text) {
        if (text.startsWith(QLatin1String("frameTriggered"))) {
            factory->deleteDevice(device);
            isDeleted = true;
        }
    };
    std::vector<unsigned char> data(std::size_t{2} * imageWidth * imageHeight, 1);
    bus.deliver(*first, imageWidth, imageHeight, data);
    Operation::awaitStreamLines();
    EXPECT_TRUE(isDeleted);
    EXPECT_EQ(device, nullptr);
}
