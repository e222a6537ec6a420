// Cameras that lie: in their descriptors, their control answers and their frames.

#include "camera_rig.h"
#include "client/property_keys.h"
#include "serious_lines.h"

#include <nlohmann/json.hpp>

#include <cstdlib>
#include <vector>

namespace
{

using survival::milliseconds;
using Bytes = std::vector<std::uint8_t>;

constexpr auto failedStart = " uvc_(get_stream_ctrl_format_size|start_streaming) faild ret: ";
constexpr auto failedConnection =
    "uvc_get_contrast failed ret: | uvc_get_exposure_abs get max failed ret: ";
constexpr auto wrongFrame = " frame size is error ";

/// What a camera can bring about that describes itself wrongly.
void expectLogOfWrongDescriptors()
{
    survival::expectLog(failedConnection);
    survival::expectLog(failedStart);
    survival::expectLog(wrongFrame);
    survival::expectLog(" the resolution is error,");
    survival::expectLog(" frame is too large, | frames are too large for libuvc, ");
    survival::expectLog(" the frame cache does not fit into the memory, ");
    survival::expectLog("try lock grab event failed");
}

class HostileDevice : public survival::CameraRig
{
protected:
    /// Enumerates, connects, streams and closes, whatever the camera lets happen.
    void driveThrough()
    {
        const int found = survival::within(milliseconds(6000), "enumerate",
                                           [&] { return driver().factory().enumDevice(); });
        camera = std::make_unique<zrn::CameraObject>(driver().factory());
        if (found > 0 && (*camera)->connectDeviceByIndex(0) == ErrorCode::Success &&
            (*camera)->startStream(0) == ErrorCode::Success) {
            camera->writeProperty(zrn::keys::maxGrabWaitTime, 100);
            survival::expectLog("try lock grab event failed"); // on a busy machine as well
            grab();
            (*camera)->stopStream(0);
        }
        camera.reset();
    }

    void expectWorks()
    {
        bus.restore();
        enumerateUntilPresent();
        connect();
        start();
        expectExactFrame();
    }

    void replugWith(const Bytes& configuration)
    {
        bus.unplug();
        bus.tell("set-descriptors", {{"configuration", configuration}});
        bus.tell("plug");
    }
};

TEST_F(HostileDevice, ControlAnswersOfTheWrongLength)
{
    survival::expectLog(failedConnection);
    for (const char* const target :
         {"gain", "brightness", "contrast", "backlight", "gamma", "hue"}) {
        for (const int length : {0, 1, 3}) {
            SCOPED_TRACE(std::string(target) + " " + std::to_string(length));
            bus.tell("control-fault",
                     {{"action", "resize"}, {"target", target}, {"length", length}, {"count", -1}});
            driveThrough();
            bus.tell("clear-faults");
        }
    }
    expectWorks();
}

TEST_F(HostileDevice, NegotiationAnswersOfTheWrongLength)
{
    survival::expectLog(failedStart);
    for (const int length : {0, 1, 18, 22, 25, 64}) {
        SCOPED_TRACE(length);
        bus.tell("control-fault",
                 {{"action", "resize"}, {"target", "probe"}, {"length", length}, {"count", -1}});
        driveThrough();
        bus.tell("clear-faults");
    }
    expectWorks();
}

TEST_F(HostileDevice, StalledRequests)
{
    survival::expectLog(failedConnection);
    survival::expectLog(failedStart);
    for (const char* const target : {"probe", "commit", "contrast", "backlight"}) {
        SCOPED_TRACE(target);
        bus.tell("control-fault", {{"action", "stall"}, {"target", target}, {"count", -1}});
        driveThrough();
        bus.tell("clear-faults");
    }
    expectWorks();
}

TEST_F(HostileDevice, Serials)
{
    for (const char* const serial : {"0", "18446744073709551615", "9223372036854775808"}) {
        bus.unplug();
        bus.tell("plug", {{"serial", serial}});
        enumerateUntilPresent();
        connect();
        EXPECT_EQ(camera->property(zrn::keys::serial).toString(), QStringLiteral("ZR") + serial);
    }
}

TEST_F(HostileDevice, FramesOfTheWrongSize)
{
    survival::expectLog(wrongFrame);
    connect();
    start();
    // libuvc 0.0.6 collects a frame in 16 MiB without looking at its end.
    for (const std::int64_t bytes :
         {0, 1, 153'599, 153'601, 16'777'216, 16'777'217, 18'000'000, 40'000'000}) {
        SCOPED_TRACE(bytes);
        const std::uint64_t sent = bus.counter("framesSent");
        bus.tell("frame-fault", {{"count", 2}, {"bytes", bytes}});
        ASSERT_TRUE(bus.waitForCounter("framesSent", sent + 4));
        EXPECT_EQ((*camera)->discardFrames(0), ErrorCode::Success);
        expectExactFrameSoon();
    }
}

TEST_F(HostileDevice, EndlessFrame)
{
    survival::expectLog(wrongFrame);
    connect();
    start();
    bus.tell("frame-fault", {{"count", 1}, {"bytes", 30'000'000}, {"withoutEndOfFrame", true}});
    const std::uint64_t sent = bus.counter("framesSent");
    ASSERT_TRUE(bus.waitForCounter("framesSent", sent + 4));
    EXPECT_EQ((*camera)->discardFrames(0), ErrorCode::Success);
    expectExactFrameSoon();
}

/// How many bytes of a descriptor a test passes over: ZRN_DESCRIPTOR_STEP, or what leaves an
/// ordinary test run time for others.
std::size_t stepFromEnvironment()
{
    constexpr std::size_t ordinary = 24;
    const char* const text = std::getenv("ZRN_DESCRIPTOR_STEP");
    return text ? std::strtoul(text, nullptr, 10) : ordinary;
}

/// Gives bytes of the configuration descriptor behind its header another value, one at a time.
class HostileDescriptorByte : public HostileDevice, public testing::WithParamInterface<int>
{
};

TEST_P(HostileDescriptorByte, IsSurvived)
{
    expectLogOfWrongDescriptors();
    constexpr std::size_t headerSize = 9;
    const Bytes sound = bus.ask("descriptors").at("configuration");
    const std::size_t step = stepFromEnvironment();
    ASSERT_GT(step, 0U);
    // Each value begins elsewhere.
    const std::size_t first = headerSize + static_cast<std::size_t>(GetParam()) % step;
    for (std::size_t i = first; i < sound.size(); i += step) {
        SCOPED_TRACE("byte " + std::to_string(i));
        Bytes broken = sound;
        broken[i] = static_cast<std::uint8_t>(GetParam());
        replugWith(broken);
        driveThrough();
    }
    bus.unplug();
    expectWorks();
}

INSTANTIATE_TEST_SUITE_P(Values, HostileDescriptorByte, testing::Values(0x00, 0x01, 0x24, 0xff));

TEST_F(HostileDevice, TruncatedDescriptors)
{
    expectLogOfWrongDescriptors();
    constexpr std::size_t headerSize = 9;
    const Bytes sound = bus.ask("descriptors").at("configuration");
    const std::size_t step = 2 * stepFromEnvironment() - 1;
    for (std::size_t size = headerSize; size < sound.size(); size += step) {
        SCOPED_TRACE("cut to " + std::to_string(size));
        Bytes cut(sound.begin(), sound.begin() + static_cast<std::ptrdiff_t>(size));
        cut[2] = static_cast<std::uint8_t>(size); // wTotalLength
        cut[3] = static_cast<std::uint8_t>(size >> 8U);
        replugWith(cut);
        driveThrough();
    }
    bus.unplug();
    expectWorks();
}

} // namespace
