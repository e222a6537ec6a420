// Hosts that call everything from many threads, in any order, with pointers of others, and delete
// what still works. On the stand-in for libuvc, where ThreadSanitizer sees every access.

#include "driver_test.h"
#include "random_calls.h"
#include "zrn_camera_factory.h"

#include <array>
#include <atomic>
#include <chrono>
#include <thread>

namespace
{

using BaseDeviceSpace::DeviceInterface;
using CameraSpace::CameraInterface;
using namespace std::chrono_literals;

constexpr int width = 8;
constexpr int height = 4;

CameraInterface& cameraOf(DeviceInterface* device)
{
    return dynamic_cast<CameraInterface&>(*device);
}

/// Threads that repeat what they are given until the object ends.
class Repeaters
{
public:
    ~Repeaters() { stop(); }

    template <typename Action>
    void add(Action action)
    {
        m_threads.emplace_back([this, action]() mutable {
            while (!m_stopped) {
                action();
                ++m_rounds;
            }
        });
    }
    void runRounds(int count)
    {
        while (m_rounds < count) {
            std::this_thread::yield();
        }
        stop();
    }
    void stop()
    {
        m_stopped = true;
        for (std::thread& thread : m_threads) {
            thread.join();
        }
        m_threads.clear();
    }

private:
    std::atomic<bool> m_stopped = false;
    std::atomic<int> m_rounds = 0;
    std::vector<std::thread> m_threads;
};

class CarelessHost : public DriverTest
{
protected:
    /// Sends frames to a camera for as long as the repeaters run.
    void sendFrames(Repeaters& repeaters, const fakeuvc::Camera& device)
    {
        repeaters.add([this, &device, data = frameOf(width, height, 2)]() mutable {
            bus.deliver(device, width, height, data);
            std::this_thread::sleep_for(1ms); // a camera's own pace
        });
    }
    void callAtRandom(Repeaters& repeaters, DeviceInterface* device, unsigned seed)
    {
        repeaters.add([&camera = cameraOf(device), random = hosts::Random(seed)]() mutable {
            const ErrorCode result = hosts::callAtRandom(camera, random);
            EXPECT_TRUE(hosts::isDocumented(result)) << code(result);
        });
    }
    void enumerate(CZRNCameraFactory& factory)
    {
        expectedLeaks.descriptors += factory.enumDevice();
    }

    fakeuvc::Camera& first = bus.addCamera(1, 2, width, height);
    fakeuvc::Camera& second = bus.addCamera(2, 0, width, height);
};

TEST_F(CarelessHost, CallsEverythingFromManyThreads)
{
    CZRNCameraFactory factory;
    enumerate(factory);
    std::array<DeviceInterface*, 2> devices = {factory.createDevice(), factory.createDevice()};
    {
        Repeaters repeaters;
        sendFrames(repeaters, first);
        sendFrames(repeaters, second);
        for (unsigned seed = 0; seed < 6; ++seed) {
            callAtRandom(repeaters, devices[seed % devices.size()], seed);
        }
        repeaters.runRounds(3000);
    }
    cameraOf(devices[0]).stopStream(0);
    for (DeviceInterface*& device : devices) {
        EXPECT_EQ(code(factory.deleteDevice(device)), 0U);
    }
}

TEST_F(CarelessHost, EnumeratesWhileCamerasAreInUse)
{
    CZRNCameraFactory factory;
    enumerate(factory);
    std::array<DeviceInterface*, 2> devices = {factory.createDevice(), factory.createDevice()};
    {
        Repeaters repeaters;
        sendFrames(repeaters, first);
        callAtRandom(repeaters, devices[0], 1);
        callAtRandom(repeaters, devices[1], 2);
        for (int i = 0; i < 100; ++i) {
            enumerate(factory);
        }
    }
    for (DeviceInterface*& device : devices) {
        EXPECT_EQ(code(factory.deleteDevice(device)), 0U);
    }
}

TEST_F(CarelessHost, HasTwoFactoriesThatComeAndGo)
{
    CZRNCameraFactory lasting;
    enumerate(lasting);
    DeviceInterface* const device = lasting.createDevice();
    {
        Repeaters repeaters;
        sendFrames(repeaters, first);
        callAtRandom(repeaters, device, 3);
        for (int i = 0; i < 50; ++i) {
            CZRNCameraFactory passing;
            enumerate(passing);
            DeviceInterface* const other = passing.createDevice();
            if (other->connectDeviceByIndex(0) == ErrorCode::Success) {
                cameraOf(other).startStream(0);
            }
        }
    }
}

TEST_F(CarelessHost, CallsInAnyOrder)
{
    CZRNCameraFactory factory;
    for (unsigned seed = 0; seed < 20; ++seed) {
        SCOPED_TRACE(seed);
        hosts::Random random(seed);
        enumerate(factory);
        CameraProbe probe;
        probe.m_grabTimeout = 1;
        for (int i = 0; i < 60; ++i) {
            const ErrorCode result = hosts::callAtRandom(probe, random);
            EXPECT_TRUE(hosts::isDocumented(result)) << code(result);
        }
    }
}

TEST_F(CarelessHost, CallsEveryOperationAfterEveryOther)
{
    CZRNCameraFactory factory;
    enumerate(factory);
    CameraProbe probe;
    hosts::Random random(1);
    for (const hosts::RandomCall& earlier : hosts::randomCalls()) {
        for (const hosts::RandomCall& later : hosts::randomCalls()) {
            SCOPED_TRACE(std::string(earlier.name) + ", then " + later.name);
            // A camera that streams has the most to lose.
            probe.connectDeviceByIndex(0);
            probe.startStream(0);
            for (const hosts::RandomCall* const call : {&earlier, &later}) {
                probe.m_grabTimeout = 1;
                const ErrorCode result = call->make(probe, random);
                EXPECT_TRUE(hosts::isDocumented(result)) << code(result);
            }
        }
    }
}

TEST_F(CarelessHost, DeletesWhatIsNotItsOwn)
{
    CZRNCameraFactory factory;
    CZRNCameraFactory other;
    DeviceInterface* foreign = other.createDevice();
    DeviceInterface* null = nullptr;
    DeviceInterface* deleted = factory.createDevice();
    DeviceInterface* copy = deleted;
    auto* wild = reinterpret_cast<DeviceInterface*>(std::uintptr_t{64});
    EXPECT_EQ(code(factory.deleteDevice(deleted)), 0U);
    EXPECT_EQ(code(factory.deleteDevice(null)), code(ErrorCode::NoCamera));
    EXPECT_EQ(code(factory.deleteDevice(foreign)), code(ErrorCode::NothingEnumerated));
    EXPECT_EQ(code(factory.deleteDevice(copy)), code(ErrorCode::NothingEnumerated));
    EXPECT_EQ(code(factory.deleteDevice(wild)), code(ErrorCode::NothingEnumerated));
    EXPECT_NE(foreign, nullptr);
}

TEST_F(CarelessHost, DeletesACameraThatIsWaitedFor)
{
    CZRNCameraFactory factory;
    for (int i = 0; i < 20; ++i) {
        enumerate(factory); // deleting the camera has closed it
        DeviceInterface* device = factory.createDevice();
        ASSERT_EQ(code(device->connectDeviceByIndex(0)), 0U);
        ASSERT_EQ(code(cameraOf(device).startStream(0)), 0U);
        log.clear();
        std::thread waiter([&camera = cameraOf(device)] { camera.discardFrames(0); });
        std::vector<unsigned char> data = frameOf(width, height, 2);
        const LogLine arrived = {QtDebugMsg, "default", " flag: true"};
        while (testing::Value(log.lines(), testing::Not(testing::Contains(arrived)))) {
            bus.deliver(first, width, height, data);
        }
        EXPECT_EQ(code(factory.deleteDevice(device)), 0U);
        waiter.join();
    }
}

/// Starts and stops its camera's stream; another object does the same on the same camera.
TEST_F(CarelessHost, StartsAndStopsOneCameraThroughTwoObjects)
{
    CZRNCameraFactory factory;
    enumerate(factory);
    std::atomic<int> inside = 0;
    std::atomic<int> mostInside = 0;
    bus.setHook([&](const fakeuvc::Call& call) {
        if (call.function != "uvc_start_streaming" && call.function != "uvc_stop_streaming") {
            return;
        }
        mostInside = std::max(mostInside.load(), ++inside);
        std::this_thread::sleep_for(1ms);
        --inside;
    });
    Repeaters repeaters;
    for (int i = 0; i < 2; ++i) {
        DeviceInterface* const device = factory.createDevice();
        ASSERT_EQ(code(device->connectDeviceByIndex(0)), 0U);
        repeaters.add([&camera = cameraOf(device)] {
            camera.startStream(0);
            camera.stopStream(0);
        });
    }
    repeaters.runRounds(50);
    bus.setHook({});
    EXPECT_EQ(mostInside, 1);
}

} // namespace
