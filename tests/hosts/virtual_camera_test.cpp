// Hosts that call everything from many threads, enumerate while they stream, load the plugin again
// and again, and twice at a time. With the real libuvc and libusb, on two virtual cameras: with the
// serials 1 and 2, or twins that both have the serial 5.

#include "built_driver.h"
#include "random_calls.h"

#include <QPluginLoader>
#include <QPointer>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <dlfcn.h>
#include <filesystem>
#include <optional>
#include <thread>

namespace
{

constexpr int cameraCount = 2;

/// Descriptors that the process has open.
std::ptrdiff_t openDescriptors()
{
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return std::distance(begin(descriptors), end(descriptors));
}

/// Runs @p action on the factory of a host that insists on unloading.
template <typename Action>
void onUnmappedPlugin(Action action)
{
    QPluginLoader loader(QString::fromStdString(builtPlugin));
    loader.setLoadHints({});
    auto* const factory = qobject_cast<IFactory*>(loader.instance());
    ASSERT_TRUE(factory) << loader.errorString().toStdString();
    action(*factory);
    loader.unload();
}

/// Whether the plugin is in the address space.
bool isMapped()
{
    void* const plugin = dlopen(ZRN_PLUGIN_PATH, RTLD_LAZY | RTLD_NOLOAD);
    if (plugin) {
        dlclose(plugin);
    }
    return plugin != nullptr;
}

void expectWorks(IFactory& factory)
{
    ASSERT_EQ(factory.enumDevice(), cameraCount);
    zrn::CameraObject host(factory);
    ASSERT_EQ(host->connectDeviceByIndex(0), ErrorCode::Success);
    host.writeProperty(zrn::keys::maxGrabWaitTime, patientGrabMs);
    ASSERT_EQ(host->startStream(0), ErrorCode::Success);
    EXPECT_EQ(grabFrom(host).result, ErrorCode::Success);
}

TEST(CarelessHost, CallsEverythingFromManyThreads)
{
    constexpr int callsPerThread = 150;
    zrn::DriverPlugin plugin(builtPlugin);
    ASSERT_EQ(plugin.factory().enumDevice(), cameraCount);
    zrn::CameraObject first(plugin.factory());
    zrn::CameraObject second(plugin.factory());
    std::vector<std::thread> threads;
    for (unsigned seed = 0; seed < 6; ++seed) {
        threads.emplace_back([&camera = seed % 2 == 0 ? *first : *second, seed] {
            hosts::Random random(seed);
            for (int i = 0; i < callsPerThread; ++i) {
                EXPECT_TRUE(hosts::isDocumented(hosts::callAtRandom(camera, random)));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    first->stopStream(0);
    second->stopStream(0);
    expectWorks(plugin.factory());
}

TEST(CarelessHost, EnumeratesWhileItStreams)
{
    zrn::DriverPlugin plugin(builtPlugin);
    ASSERT_EQ(plugin.factory().enumDevice(), cameraCount);
    std::atomic<bool> ends = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < cameraCount; ++i) {
        threads.emplace_back([&, i] {
            zrn::CameraObject host(plugin.factory());
            while (!ends) {
                host->connectDeviceByIndex(i);
                host.writeProperty(zrn::keys::maxGrabWaitTime, 50);
                host->startStream(0);
                while (!ends && grabFrom(host).result == ErrorCode::Success) {
                }
                host->disconnectDevice();
            }
        });
    }
    for (int i = 0; i < 20; ++i) {
        plugin.factory().enumDevice();
    }
    ends = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    expectWorks(plugin.factory());
}

TEST(CarelessHost, DeletesACameraThatStreams)
{
    zrn::DriverPlugin plugin(builtPlugin);
    for (int i = 0; i < 10; ++i) {
        ASSERT_EQ(plugin.factory().enumDevice(), cameraCount);
        zrn::CameraObject host(plugin.factory());
        ASSERT_EQ(host->connectDeviceByIndex(i % cameraCount), ErrorCode::Success);
        ASSERT_EQ(host->startStream(0), ErrorCode::Success);
    }
    expectWorks(plugin.factory());
}

TEST(CarelessHost, DeletesTheFactoryUnderStreamingCameras)
{
    std::ptrdiff_t before = 0;
    for (int i = 0; i < 10; ++i) {
        std::optional<zrn::DriverPlugin> plugin{builtPlugin};
        const QPointer<IFactory> factory = &plugin->factory();
        ASSERT_EQ(factory->enumDevice(), cameraCount);
        for (int index = 0; index < cameraCount; ++index) {
            BaseDeviceSpace::DeviceInterface* const device = factory->createDevice();
            ASSERT_EQ(device->connectDeviceByIndex(index), ErrorCode::Success);
            ASSERT_EQ(dynamic_cast<CameraSpace::CameraInterface&>(*device).startStream(0),
                      ErrorCode::Success);
        }
        plugin.reset();
        ASSERT_TRUE(factory.isNull());
        if (i == 0) {
            before = openDescriptors();
        }
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(CarelessHost, LoadsThePluginTwice)
{
    std::optional<zrn::DriverPlugin> plugin{builtPlugin};
    QPluginLoader loader(QStringLiteral(ZRN_PLUGIN_COPY));
    auto* const other = qobject_cast<IFactory*>(loader.instance());
    ASSERT_TRUE(other) << loader.errorString().toStdString();
    ASSERT_NE(other, &plugin->factory());

    {
        ASSERT_EQ(plugin->factory().enumDevice(), cameraCount);
        zrn::CameraObject host(plugin->factory());
        ASSERT_EQ(host->connectDeviceByIndex(0), ErrorCode::Success);
        host.writeProperty(zrn::keys::maxGrabWaitTime, patientGrabMs);
        ASSERT_EQ(host->startStream(0), ErrorCode::Success);
        EXPECT_EQ(other->enumDevice(), 0); // the cameras are taken
        EXPECT_EQ(grabFrom(host).result, ErrorCode::Success);

        BaseDeviceSpace::DeviceInterface* foreign = other->createDevice();
        BaseDeviceSpace::DeviceInterface* const kept = foreign;
        EXPECT_EQ(plugin->factory().deleteDevice(foreign), ErrorCode::NothingEnumerated);
        EXPECT_EQ(foreign, kept);
        EXPECT_EQ(other->deleteDevice(foreign), ErrorCode::Success);
    }
    plugin.reset();
    expectWorks(*other);
    EXPECT_TRUE(loader.unload());
}

/// In a process of its own, because a library that was once loaded to stay stays.
TEST(UnloadingHost, UnmapsThePluginAndLoadsItAgain)
{
#ifdef ZRN_UNDER_ADDRESS_SANITIZER
    GTEST_SKIP() << "the leak checker cannot name what an unmapped libuvc has left";
#endif
    for (int i = 0; i < 3; ++i) {
        onUnmappedPlugin(expectWorks);
        EXPECT_FALSE(isMapped());
    }
}

/// The first of two cameras with one serial loses its place to the second, and is never closed.
TEST(TwinCameras, AreSurvivedByUnloadingThePlugin)
{
    // libusb's event handling comes back to libuvc, and to the driver's guards, once a second.
    constexpr std::chrono::milliseconds someRounds(2500);
    onUnmappedPlugin([](IFactory& factory) {
        ASSERT_EQ(factory.enumDevice(), cameraCount);
        zrn::CameraObject host(factory);
        ASSERT_EQ(host->connectDeviceBySerial(QStringLiteral("ZR5")), ErrorCode::Success);
        host.writeProperty(zrn::keys::maxGrabWaitTime, patientGrabMs);
        ASSERT_EQ(host->startStream(0), ErrorCode::Success);
        EXPECT_EQ(grabFrom(host).result, ErrorCode::Success);
    });
    std::this_thread::sleep_for(someRounds);
    EXPECT_TRUE(isMapped());
    onUnmappedPlugin([=](IFactory& factory) {
        EXPECT_LT(factory.enumDevice(), cameraCount); // one is still claimed
        std::this_thread::sleep_for(someRounds);
    });
}

} // namespace
