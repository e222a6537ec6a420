// The cable is pulled at every moment of a camera's life, and the host goes on as hosts do.

#include "camera_rig.h"
#include "client/property_keys.h"
#include "process_usage.h"
#include "serious_lines.h"
#include "watched_thread.h"

#include <algorithm>
#include <atomic>
#include <future>
#include <iomanip>
#include <iostream>
#include <map>
#include <random>
#include <string>
#include <thread>

namespace
{

using survival::milliseconds;
using survival::within;

// What docs/reliability.md promises for a camera that has left the bus.
constexpr milliseconds statusBound(500);
constexpr milliseconds stopBound(1000);
constexpr milliseconds disconnectBound(1500);
constexpr milliseconds enumerateBound(1500);

class Unplug : public survival::CameraRig
{
protected:
    /// What a host does about a camera that has gone, and then with the one that comes back.
    void recover()
    {
        survival::expectLog(" uvc_get_gain get cur failed ret: -");
        EXPECT_FALSE(within(statusBound, "status", [&] { return isOnline(); }));
        const ErrorCode stopped =
            within(stopBound, "stop", [&] { return (*camera)->stopStream(0); });
        EXPECT_TRUE(stopped == ErrorCode::Success || stopped == ErrorCode::NotStreaming);
        EXPECT_EQ(grab(), ErrorCode::NotStreaming);
        EXPECT_EQ(
            within(disconnectBound, "disconnect", [&] { return (*camera)->disconnectDevice(); }),
            ErrorCode::Success);
        EXPECT_EQ(
            within(enumerateBound, "enumerate", [&] { return driver().factory().enumDevice(); }),
            0);

        bus.restore();
        enumerateUntilPresent();
        connect();
        start();
        expectExactFrame();
        EXPECT_EQ((*camera)->stopStream(0), ErrorCode::Success);
    }
};

TEST_F(Unplug, Idle)
{
    connect();
    bus.unplug();
    recover();
}

TEST_F(Unplug, Streaming)
{
    connect();
    start();
    expectExactFrame();
    bus.unplug();
    recover();
}

TEST_F(Unplug, StreamingAndStoppedAtOnce)
{
    connect();
    start();
    expectExactFrame();
    std::thread cable([] { VirtualCamera().unplug(); });
    EXPECT_EQ(within(stopBound, "stop", [&] { return (*camera)->stopStream(0); }),
              ErrorCode::Success);
    cable.join();
    recover();
}

TEST_F(Unplug, StreamPaused)
{
    connect();
    start();
    expectExactFrame();
    bus.tell("freeze");
    std::this_thread::sleep_for(milliseconds(100));
    bus.unplug();
    recover();
}

TEST_F(Unplug, Stopped)
{
    connect();
    start();
    expectExactFrame();
    EXPECT_EQ((*camera)->stopStream(0), ErrorCode::Success);
    bus.unplug();
    recover();
}

TEST_F(Unplug, DuringControlTransfer)
{
    survival::expectLog(" uvc_get_gain get cur failed ret: -");
    connect();
    bus.tell("control-fault",
             {{"action", "ignore"}, {"request", "get-cur"}, {"target", "gain"}, {"count", -1}});
    const std::uint64_t ignored = bus.counter("controlFaults");
    auto gain = std::async(std::launch::async, [this] {
        unsigned short value = 0;
        return (*camera)->getGain(value, 0);
    });
    ASSERT_TRUE(bus.waitForCounter("controlFaults", ignored + 1));
    bus.unplug();
    EXPECT_EQ(within(milliseconds(500), "control transfer", [&] { return gain.get(); }),
              ErrorCode::GainReadFailed);
    recover();
}

TEST_F(Unplug, WhileGrabWaits)
{
    connect();
    start();
    expectExactFrame();
    bus.tell("freeze");
    survival::expectLog("try lock grab event failed");
    while (grab() == ErrorCode::Success) {
    }
    ErrorCode result = ErrorCode::Success;
    WatchedThread waiting([&] { result = grab(); });
    EXPECT_TRUE(waiting.waitsForOthers());
    bus.unplug();
    // The grab's own time-out is 1000 ms.
    within(milliseconds(1100), "grab", [&] {
        waiting.join();
        return true;
    });
    EXPECT_EQ(result, ErrorCode::GrabTimeout);
    recover();
}

TEST_F(Unplug, BetweenEnumerationAndConnection)
{
    survival::expectLog("uvc_get_contrast failed ret: -");
    survival::expectLog(" uvc_get_exposure_abs get max failed ret: -");
    survival::expectLog(" uvc_(get_stream_ctrl_format_size|start_streaming) faild ret: -");
    bus.unplug();
    camera = std::make_unique<zrn::CameraObject>(driver().factory());
    const QString serial = QString::fromStdString(bus.serial());
    // The camera was opened by the enumeration, and its descriptors are known.
    EXPECT_EQ(within(milliseconds(500), "connect",
                     [&] { return (*camera)->connectDeviceBySerial(serial); }),
              ErrorCode::Success);
    EXPECT_EQ(within(milliseconds(500), "start", [&] { return (*camera)->startStream(0); }),
              ErrorCode::StreamStartFailed);
    recover();
}

TEST_F(Unplug, ThenEnumeratedWhileConnectedAndStreaming)
{
    connect();
    start();
    expectExactFrame();
    bus.unplug();
    EXPECT_EQ(
        within(milliseconds(2500), "enumerate", [&] { return driver().factory().enumDevice(); }),
        0);
    recover();
}

TEST_F(Unplug, ThenDeletedWhileStreaming)
{
    connect();
    start();
    expectExactFrame();
    bus.unplug();
    within(milliseconds(2500), "delete", [&] {
        camera.reset();
        return true;
    });
    bus.restore();
    enumerateUntilPresent();
    connect();
    start();
    expectExactFrame();
}

TEST_F(Unplug, WithoutNotice)
{
    connect();
    start();
    expectExactFrame();
    bus.tell("unplug", {{"announced", false}});
    survival::expectLog(" uvc_get_gain get cur failed ret: -");
    EXPECT_FALSE(within(statusBound, "status", [&] { return isOnline(); }));
    EXPECT_EQ(within(stopBound, "stop", [&] { return (*camera)->stopStream(0); }),
              ErrorCode::Success);
    EXPECT_EQ(within(disconnectBound, "disconnect", [&] { return (*camera)->disconnectDevice(); }),
              ErrorCode::Success);
}

/// The cable is pulled some milliseconds into an operation.
class UnplugDuring : public Unplug, public testing::WithParamInterface<int>
{
protected:
    /// Pulls the cable after the parameter's time, from another thread.
    std::thread pullLater()
    {
        return std::thread([delay = milliseconds(GetParam())] {
            VirtualCamera cable;
            std::this_thread::sleep_for(delay);
            cable.unplug();
        });
    }
};

TEST_P(UnplugDuring, Start)
{
    survival::expectLog(" uvc_(get_stream_ctrl_format_size|start_streaming) faild ret: -");
    connect();
    std::thread cable = pullLater();
    within(milliseconds(1000), "start", [&] { return (*camera)->startStream(0); });
    cable.join();
    recover();
}

TEST_P(UnplugDuring, Stop)
{
    connect();
    start();
    expectExactFrame();
    std::thread cable = pullLater();
    EXPECT_EQ(within(stopBound, "stop", [&] { return (*camera)->stopStream(0); }),
              ErrorCode::Success);
    cable.join();
    recover();
}

TEST_P(UnplugDuring, Connection)
{
    survival::expectLog("uvc_get_contrast failed ret: -");
    survival::expectLog(" uvc_get_exposure_abs get max failed ret: -");
    std::thread cable = pullLater();
    camera = std::make_unique<zrn::CameraObject>(driver().factory());
    const QString serial = QString::fromStdString(bus.serial());
    within(milliseconds(1500), "connect", [&] { return (*camera)->connectDeviceBySerial(serial); });
    cable.join();
    recover();
}

TEST_P(UnplugDuring, Enumeration)
{
    std::thread cable = pullLater();
    within(milliseconds(3000), "enumerate", [&] { return driver().factory().enumDevice(); });
    cable.join();
    EXPECT_EQ(driver().factory().enumDevice(), 0);
    bus.restore();
    enumerateUntilPresent();
    connect();
    start();
    expectExactFrame();
}

INSTANTIATE_TEST_SUITE_P(Moments, UnplugDuring, testing::Values(0, 1, 2, 3, 5, 8, 13, 21, 34));

/// A host does anything with a camera, in any order, until the cable has been pulled out.
class UnplugAtAnyMoment : public Unplug
{
protected:
    /// @return what was under way when the cable was pulled.
    std::string useUntilUnplugged()
    {
        constexpr unsigned mostBefore = 3;
        constexpr unsigned longestDelayUs = 5000;
        std::atomic<const char*> current = "nothing";
        for (unsigned i = pick(mostBefore); i > 0; --i) {
            useOnce(current);
        }
        std::atomic<const char*> interrupted = nullptr;
        std::thread cable([&, delay = std::chrono::microseconds(pick(longestDelayUs))] {
            std::this_thread::sleep_for(delay);
            const char* const before = current;
            m_cable.unplug();
            interrupted = before;
        });
        while (!interrupted) {
            useOnce(current);
        }
        cable.join();
        return interrupted.load();
    }

    /// What a host does when the camera has gone, and is back: a frame of it is exact.
    void comeBack()
    {
        QVariant status;
        if (camera->readProperty(zrn::keys::heartBeat, status) == ErrorCode::Success) {
            EXPECT_FALSE(status.toMap().value(zrn::keys::online).toBool());
        }
        within(stopBound, "stop", [&] { return (*camera)->stopStream(0); });
        within(disconnectBound, "disconnect", [&] { return (*camera)->disconnectDevice(); });
        EXPECT_EQ(
            within(enumerateBound, "enumerate", [&] { return driver().factory().enumDevice(); }),
            0);
        bus.restore();
        beginStream();
    }
    void beginStream()
    {
        enumerateUntilPresent();
        connect();
        start();
        expectExactFrame();
        camera->writeProperty(zrn::keys::maxGrabWaitTime, grabTimeoutMs);
    }

    /// A number from 0 to @p highest.
    unsigned pick(unsigned highest)
    {
        return std::uniform_int_distribution<unsigned>(0, highest)(m_random);
    }

    int enumerations = 0;

private:
    static constexpr int grabTimeoutMs = 20; // a disposal waits so long for each of 16 frames

    void useOnce(std::atomic<const char*>& current)
    {
        switch (pick(6)) {
        case 0:
            current = "grab";
            grab();
            break;
        case 1:
            enumerateAndConnect(current);
            break;
        case 2:
            current = "disconnection";
            (*camera)->disconnectDevice();
            enumerateAndConnect(current);
            break;
        case 3:
            current = "start";
            (*camera)->startStream(0);
            break;
        case 4:
            current = "stop";
            (*camera)->stopStream(0);
            break;
        case 5:
            current = "discarding";
            (*camera)->discardFrames(0);
            break;
        default:
            current = "request";
            unsigned short gain = 0;
            (*camera)->getGain(gain, 0);
        }
    }

    void enumerateAndConnect(std::atomic<const char*>& current)
    {
        current = "enumeration";
        ++enumerations;
        driver().factory().enumDevice();
        current = "deletion and connection";
        camera = std::make_unique<zrn::CameraObject>(driver().factory());
        (*camera)->connectDeviceBySerial(m_serial);
        camera->writeProperty(zrn::keys::maxGrabWaitTime, grabTimeoutMs);
    }

    VirtualCamera m_cable; ///< of the thread that pulls it
    QString m_serial = QString::fromStdString(bus.serial());
    std::mt19937 m_random{static_cast<unsigned>(survival::fromEnvironment("ZRN_SEED", 1))};
};

TEST_F(UnplugAtAnyMoment, IsSurvivedAndNothingGrows)
{
    constexpr int settling = 5; // caches, buffers and thread stacks reach their size
    const int unplugs = survival::fromEnvironment("ZRN_UNPLUGS", 12);
    ASSERT_GT(unplugs, settling);
    // What each opening leaves, and the caches that malloc has for each thread.
    constexpr long allowedBytesPerOpening = 256;
    constexpr long allowedBytesPerHandle = 4096;
    constexpr long allowedBytes = 64 * 1024;
    for (const char* line :
         {" ret: ?-", "try lock grab event failed", "get image format is failed"}) {
        survival::expectLog(line);
    }

    std::map<std::string, int> moments;
    survival::ProcessUsage before;
    beginStream();
    for (int i = 0; i < unplugs && !HasFailure(); ++i) {
        if (i == settling) {
            before = survival::ProcessUsage::now();
            enumerations = 0;
        }
        SCOPED_TRACE(i);
        ++moments[useUntilUnplugged()];
        comeBack();
    }

    const auto after = survival::ProcessUsage::now();
    const long growth = after.allocatedBytes - before.allocatedBytes;
    const auto print = [](const std::string& name, long count) {
        std::cout << "  " << std::left << std::setw(48) << name << std::right << std::setw(10)
                  << count << '\n';
    };
    print("unplugs", unplugs);
    print("bytes more allocated", growth);
    print("KiB more resident", after.residentKiB - before.residentKiB);
    print("descriptors more", after.descriptors - before.descriptors);
    print("threads more", after.threads - before.threads);
    for (const auto& [moment, count] : moments) {
        print("pulled during: " + moment, count);
    }
    // A handle whose device leaves in the very moment in which a setting is changed stays open.
    const int lostHandles = std::max(0, after.descriptors - before.descriptors);
    EXPECT_LE(lostHandles, 3 + unplugs / 20);
    EXPECT_LE(growth, allowedBytes + (enumerations + 2L * unplugs) * allowedBytesPerOpening +
                          lostHandles * allowedBytesPerHandle);
    EXPECT_LE(after.threads, before.threads);
}

} // namespace
