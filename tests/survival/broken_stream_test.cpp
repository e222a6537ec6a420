// Cameras that stay on the bus and stop doing their work: what the host can tell, and what starting
// the stream again repairs.

#include "camera_rig.h"
#include "loaded_libuvc.h"
#include "serious_lines.h"

#include <thread>

namespace
{

using survival::milliseconds;
using survival::within;

/// Faults for every transfer in flight, however often a kernel tries each.
constexpr int manyTransfers = 100'000;

/// What the driver says of a frame that a fault has cut.
constexpr auto cutFrame = " frame size is error ";

class BrokenStream : public survival::CameraRig
{
protected:
    void SetUp() override
    {
        CameraRig::SetUp();
        connect();
        start();
        expectExactFrame();
    }

    /// Grabs what is still queued, until the driver says that nothing comes.
    void expectSilence()
    {
        constexpr int mostQueued = 64;
        survival::expectLog("try lock grab event failed");
        ErrorCode result = ErrorCode::Success;
        for (int i = 0; i < mostQueued && result == ErrorCode::Success; ++i) {
            result = grab();
        }
        EXPECT_EQ(result, ErrorCode::GrabTimeout);
        EXPECT_TRUE(isOnline());
    }

    void expectRestartRepairs()
    {
        EXPECT_EQ(within(milliseconds(1000), "stop", [&] { return (*camera)->stopStream(0); }),
                  ErrorCode::Success);
        EXPECT_EQ(within(milliseconds(1000), "start", [&] { return (*camera)->startStream(0); }),
                  ErrorCode::Success);
        EXPECT_EQ((*camera)->discardFrames(0), ErrorCode::Success);
        expectExactFrame();
    }
};

TEST_F(BrokenStream, FrozenCameraShowsInGrabsAndGoesOn)
{
    bus.tell("freeze");
    expectSilence();
    bus.tell("thaw");
    expectExactFrame();
}

using LongSilence = BrokenStream;

TEST_F(LongSilence, EndsWithTheNextFrame)
{
    bus.tell("freeze");
    std::this_thread::sleep_for(milliseconds(6000)); // libuvc's transfers time out after 5 s
    expectSilence();
    bus.tell("thaw");
    expectExactFrame();
}

TEST_F(BrokenStream, HaltedEndpointEndsTheStreamQuietly)
{
    survival::expectLog(cutFrame);
    bus.tell("halt");
    expectSilence();
    const std::uint64_t refused = bus.counter("transfersFailed");
    std::this_thread::sleep_for(milliseconds(200));
    EXPECT_EQ(bus.counter("transfersFailed"), refused) << "transfers go round in circles";
    expectRestartRepairs();
}

TEST_F(BrokenStream, SomeFailedTransfersAreSurvived)
{
    survival::expectLog(cutFrame);
    const std::uint64_t failed = bus.counter("transfersFailed");
    bus.tell("transfer-fault", {{"kind", "protocol"}, {"count", 20}});
    ASSERT_TRUE(bus.waitForCounter("transfersFailed", failed + 20));
    EXPECT_EQ((*camera)->discardFrames(0), ErrorCode::Success);
    expectExactFrame();
}

TEST_F(BrokenStream, FailedTransfersEndTheStream)
{
    survival::expectLog(cutFrame);
    bus.tell("transfer-fault", {{"kind", "protocol"}, {"count", manyTransfers}});
    expectSilence();
    bus.tell("clear-faults");
    expectRestartRepairs();
}

TEST_F(BrokenStream, OneFailedTransferCostsItsFrameOnly)
{
    survival::expectLog(cutFrame);
    for (const char* const kind : {"protocol", "overflow"}) {
        const std::uint64_t failed = bus.counter("transfersFailed");
        bus.tell("transfer-fault", {{"kind", kind}});
        ASSERT_TRUE(bus.waitForCounter("transfersFailed", failed + 1));
        EXPECT_EQ((*camera)->discardFrames(0), ErrorCode::Success);
        expectExactFrame();
        EXPECT_TRUE(isOnline());
    }
    expectRestartRepairs();
}

TEST_F(BrokenStream, FramesOfAnotherSizeShowAsTimeOuts)
{
    survival::expectLog(cutFrame);
    // Of a longer one libuvc 0.0.7 hands out as much as was announced.
    const std::int64_t delta = libuvcIs007OrNewer() ? -2 : 2;
    bus.tell("frame-fault", {{"count", -1}, {"sizeDelta", delta}});
    expectSilence();
    bus.tell("clear-faults");
    expectRestartRepairs();
}

/// Transfers that usbfs has no memory for. Only a transport that takes the submissions itself can
/// refuse them.
using RefusedSubmissions = BrokenStream;

TEST_F(RefusedSubmissions, SomeAreSurvived)
{
    survival::expectLog(cutFrame);
    const std::uint64_t failed = bus.counter("transfersFailed");
    bus.tell("refuse-submissions", {{"count", 20}});
    ASSERT_TRUE(bus.waitForCounter("transfersFailed", failed + 20));
    EXPECT_EQ((*camera)->discardFrames(0), ErrorCode::Success);
    expectExactFrame();
    expectRestartRepairs();
}

TEST_F(RefusedSubmissions, AllEndTheStream)
{
    survival::expectLog(cutFrame);
    bus.tell("refuse-submissions", {{"count", 1000}});
    expectSilence();
    bus.tell("clear-faults");
    expectRestartRepairs();
}

TEST_F(RefusedSubmissions, AtTheStartItFailsOrIsSilent)
{
    survival::expectLog(" uvc_start_streaming faild ret: -");
    EXPECT_EQ((*camera)->stopStream(0), ErrorCode::Success);
    bus.tell("refuse-submissions", {{"count", 1000}});
    const ErrorCode started =
        within(milliseconds(1000), "start", [&] { return (*camera)->startStream(0); });
    if (libuvcIs007OrNewer()) {
        EXPECT_EQ(started, ErrorCode::Success);
        expectSilence();
        EXPECT_EQ((*camera)->stopStream(0), ErrorCode::Success);
    } else {
        EXPECT_EQ(started, ErrorCode::StreamStartFailed);
    }
    bus.tell("clear-faults");
    EXPECT_EQ((*camera)->startStream(0), ErrorCode::Success);
    expectExactFrame();
}

/// A hundred payloads need more memory than usbfs gives.
using MemoryLimit = BrokenStream;

TEST_F(MemoryLimit, TheStreamDoesWithFewerTransfers)
{
    for (int i = 0; i < 20; ++i) {
        expectExactFrame();
    }
    EXPECT_TRUE(isOnline());
    expectRestartRepairs();
}

/// A frame must take several payloads for one of them to be lost.
using LostPayloads = BrokenStream;

TEST_F(LostPayloads, CostTheirFramesOnly)
{
    survival::expectLog(cutFrame);
    const std::uint64_t lost = bus.counter("payloadsLost");
    bus.tell("frame-fault", {{"count", 3}, {"lostPayloads", 1}});
    ASSERT_TRUE(bus.waitForCounter("payloadsLost", lost + 3));
    const std::uint64_t wrong = bus.counter("payloadsWithError");
    bus.tell("frame-fault", {{"count", 3}, {"errorPayloads", 1}});
    ASSERT_TRUE(bus.waitForCounter("payloadsWithError", wrong + 3));
    EXPECT_EQ((*camera)->discardFrames(0), ErrorCode::Success);
    expectExactFrame();
}

TEST_F(BrokenStream, MuteControlPipeHoldsNothingUp)
{
    survival::expectLog(" uvc_get_gain get cur failed ret: -");
    survival::expectLog(" uvc_(get_stream_ctrl_format_size|start_streaming) faild ret: -");
    bus.tell("control-fault", {{"action", "ignore"}, {"count", -1}});
    unsigned short gain = 0;
    EXPECT_EQ(
        within(milliseconds(2500), "first control", [&] { return (*camera)->getGain(gain, 0); }),
        ErrorCode::GainReadFailed);
    EXPECT_EQ(
        within(milliseconds(1000), "second control", [&] { return (*camera)->getGain(gain, 0); }),
        ErrorCode::GainReadFailed);
    EXPECT_FALSE(within(milliseconds(1000), "status", [&] { return isOnline(); }));
    EXPECT_EQ(grab(), ErrorCode::Success);
    EXPECT_EQ(within(milliseconds(3000), "stop", [&] { return (*camera)->stopStream(0); }),
              ErrorCode::Success);
    within(milliseconds(3000), "start", [&] { return (*camera)->startStream(0); });
    EXPECT_EQ(
        within(milliseconds(3000), "disconnect", [&] { return (*camera)->disconnectDevice(); }),
        ErrorCode::Success);
    // Opened, as its descriptors come from the kernel, with a serial of which nothing could be
    // read.
    EXPECT_EQ(
        within(milliseconds(6000), "enumerate", [&] { return driver().factory().enumDevice(); }),
        1);

    bus.tell("clear-faults");
    enumerateUntilPresent();
    connect();
    EXPECT_TRUE(isOnline());
}

} // namespace
