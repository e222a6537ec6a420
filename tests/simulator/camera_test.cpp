#include "model/camera.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

namespace zrnsim
{
namespace
{

using namespace std::chrono_literals;

constexpr std::uint16_t transferLength = 4096;

/// Frames that name their number and their gain, so that a test sees what a frame was made of.
void renderPlain(const FrameRequest& request, Bytes& frame)
{
    frame.assign(static_cast<std::size_t>(request.width) *
                     static_cast<std::size_t>(request.height * request.bytesPerPosition),
                 request.controls.colorGain[0]);
    frame.at(0) = static_cast<std::uint8_t>(request.frameNumber);
}

class CameraTest : public testing::Test
{
protected:
    explicit CameraTest(const std::string& text = "type4,sizes=32x16,rate=0,payload=256")
        : camera(parseCamera(text, 1), renderPlain)
    {
        camera.setWakeHandler([this] {
            const std::lock_guard lock(mutex);
            ++wakes;
            woken.notify_all();
        });
    }
    ~CameraTest() override { camera.setWakeHandler({}); }

    ControlStatus send(const SetupPacket& setup, const Bytes& out = {})
    {
        return camera.control(setup, out).status;
    }

    ControlStatus commit()
    {
        const Bytes block = negotiate(camera.config(), {}).encode();
        return send({0x21, uvc::setCur, 0x0200, 1, StreamParameters::wireSize}, block);
    }

    void stop() { send({0x01, usb::setInterface, 0, 1, 0}); }

    ControlReply getGain() { return camera.control({0xa1, uvc::getCur, 0x0400, 0x0200, 2}, {}); }

    ControlStatus setGamma(std::uint8_t value)
    {
        return send({0x21, uvc::setCur, 0x0900, 0x0200, 2}, {value, 0});
    }

    /// Waits for stream data, at most a second.
    std::optional<PayloadPiece> awaitPiece()
    {
        const auto deadline = Clock::now() + 1s;
        while (true) {
            unsigned seen = 0;
            {
                const std::lock_guard lock(mutex);
                seen = wakes;
            }
            auto piece = camera.nextPiece(transferLength);
            if (piece || Clock::now() > deadline) {
                return piece;
            }
            std::unique_lock lock(mutex);
            woken.wait_until(lock, deadline, [&] { return wakes != seen; });
        }
    }

    /// The data of the next frame without its payload headers.
    Bytes awaitFrame()
    {
        Bytes data;
        while (const auto piece = awaitPiece()) {
            const Bytes body(piece->body().begin(), piece->body().end());
            data.insert(data.end(), body.begin(), body.end());
            if (piece->endsFrame) {
                break;
            }
        }
        return data;
    }

    std::mutex mutex;
    std::condition_variable woken;
    unsigned wakes = 0;
    Camera camera;
};

TEST_F(CameraTest, SendsNothingBeforeTheCommit)
{
    EXPECT_FALSE(camera.emitFrames(1));
    EXPECT_EQ(camera.nextPiece(transferLength), std::nullopt);
    EXPECT_FALSE(camera.isStreaming());
}

TEST_F(CameraTest, SendsEachEmittedFrameOnce)
{
    ASSERT_EQ(commit(), ControlStatus::Done);
    ASSERT_TRUE(camera.emitFrames(3));
    for (std::uint8_t number = 0; number < 3; ++number) {
        const Bytes frame = awaitFrame();
        ASSERT_EQ(frame.size(), 32U * 16 * 2);
        EXPECT_EQ(frame[0], number);
    }
    EXPECT_EQ(camera.nextPiece(transferLength), std::nullopt);

    const Counters counters = camera.counters();
    EXPECT_EQ(counters.framesProduced, 3U);
    EXPECT_EQ(counters.framesSent, 3U);
    EXPECT_EQ(counters.framesOverrun, 0U);
    const std::uint64_t payloads = (32 * 16 * 2 + 243) / 244;
    EXPECT_EQ(counters.payloadsSent, 3 * payloads);
    EXPECT_EQ(counters.bytesSent, 3 * (32U * 16 * 2 + 12 * payloads));
}

TEST_F(CameraTest, ListsWhatItSentWithTheSettingsOfThatMoment)
{
    commit();
    camera.emitFrames(1);
    awaitFrame();
    setGamma(200);
    camera.setFrameNumber(1000);
    camera.emitFrames(1);
    EXPECT_EQ(awaitFrame().at(1), 200);

    const auto frames = camera.sentFrames(0);
    ASSERT_EQ(frames.size(), 2U);
    EXPECT_EQ(frames[0].request.controls.colorGain[0], 128);
    EXPECT_EQ(frames[1].request.controls.colorGain[0], 200);
    EXPECT_EQ(frames[1].request.frameNumber, 1000U);
    EXPECT_TRUE(frames[1].complete);
    EXPECT_EQ(camera.sentFrames(1).size(), 1U);
}

TEST_F(CameraTest, ListsWhenTheHostHadTheBeginningOfAFrame)
{
    commit();
    camera.emitFrames(2);
    const auto first = awaitPiece();
    ASSERT_TRUE(first && first->startedFrame);
    EXPECT_EQ(*first->startedFrame, 0U);
    EXPECT_FALSE(camera.sentFrames(0)[0].taken);
    const auto before = Clock::now();
    camera.noteTaken(*first->startedFrame);
    camera.noteTaken(4711); // which is not kept
    ASSERT_TRUE(camera.sentFrames(0)[0].taken);
    EXPECT_GE(*camera.sentFrames(0)[0].taken, before);
    std::optional<PayloadPiece> piece = first;
    while (!piece->endsFrame) {
        piece = awaitPiece();
        ASSERT_TRUE(piece);
        EXPECT_FALSE(piece->startedFrame);
    }
    piece = awaitPiece();
    ASSERT_TRUE(piece && piece->startedFrame);
    EXPECT_EQ(*piece->startedFrame, 1U);
}

TEST_F(CameraTest, TracesEveryRequestInOrder)
{
    getGain();
    setGamma(7);
    getGain();
    const auto trace = camera.trace(0);
    ASSERT_EQ(trace.size(), 3U);
    EXPECT_EQ(trace[0].name.request, "get-cur");
    EXPECT_EQ(trace[0].name.target, "gain");
    EXPECT_EQ(trace[1].name.request, "set-cur");
    EXPECT_EQ(trace[1].name.target, "gamma");
    EXPECT_EQ(trace[1].data, (Bytes{7, 0}));
    EXPECT_LE(trace[0].time, trace[1].time);
    EXPECT_EQ(camera.trace(2).size(), 1U);
    EXPECT_EQ(camera.counters().requests.at("get-cur gain"), 2U);
}

TEST_F(CameraTest, CountsAFrameThatAStopCuts)
{
    commit();
    camera.emitFrames(1);
    ASSERT_TRUE(awaitPiece());
    stop();
    EXPECT_EQ(camera.nextPiece(transferLength), std::nullopt);
    const Counters counters = camera.counters();
    EXPECT_EQ(counters.framesStarted, 1U);
    EXPECT_EQ(counters.framesSent, 0U);
    EXPECT_EQ(counters.framesCut, 1U);
    EXPECT_EQ(counters.streamStops, 1U);
}

TEST_F(CameraTest, ControlFaultsHitAsManyRequestsAsAsked)
{
    ControlFault fault;
    fault.action = ControlFault::Action::Stall;
    fault.target = "gain";
    fault.request = "get-cur";
    fault.requests = 2;
    camera.addControlFault(fault);
    EXPECT_EQ(setGamma(1), ControlStatus::Done);
    EXPECT_EQ(getGain().status, ControlStatus::Stalled);
    EXPECT_EQ(getGain().status, ControlStatus::Stalled);
    EXPECT_EQ(getGain().status, ControlStatus::Done);
    EXPECT_EQ(camera.counters().controlFaults, 2U);
}

TEST_F(CameraTest, ControlFaultsFailDelayResizeReplaceAndForget)
{
    using Action = ControlFault::Action;
    ControlFault fault;
    fault.action = Action::Fail;
    camera.addControlFault(fault);
    EXPECT_EQ(getGain().status, ControlStatus::Failed);

    fault.action = Action::Ignore;
    camera.addControlFault(fault);
    EXPECT_EQ(getGain().status, ControlStatus::Unanswered);

    fault.action = Action::Delay;
    fault.delay = 50ms;
    camera.addControlFault(fault);
    EXPECT_EQ(getGain().delay, 50ms);

    fault = {};
    fault.action = Action::Resize;
    fault.length = 1;
    camera.addControlFault(fault);
    EXPECT_EQ(getGain().data.size(), 1U);

    fault.action = Action::Value;
    fault.value = 0x1234;
    camera.addControlFault(fault);
    EXPECT_EQ(getGain().data, (Bytes{0x34, 0x12}));

    fault.action = Action::Forget;
    camera.addControlFault(fault);
    EXPECT_EQ(setGamma(9), ControlStatus::Done);
    EXPECT_NE(camera.controls()[ControlId::Gamma].cur, 9);
}

TEST_F(CameraTest, FrameFaultsChangeTheSize)
{
    commit();
    FrameFault fault;
    fault.frames = 1;
    fault.sizeDelta = -24;
    camera.setFrameFault(fault);
    camera.emitFrames(2);
    EXPECT_EQ(awaitFrame().size(), 1000U);
    EXPECT_EQ(awaitFrame().size(), 1024U);

    fault.sizeDelta = 100;
    camera.setFrameFault(fault);
    camera.emitFrames(1);
    EXPECT_EQ(awaitFrame().size(), 1124U);

    fault.bytes = 10;
    camera.setFrameFault(fault);
    camera.emitFrames(1);
    EXPECT_EQ(awaitFrame().size(), 10U);
}

TEST_F(CameraTest, FrozenCameraIsSilentAndGoesOnAfterwards)
{
    commit();
    camera.setFrozen(true);
    camera.emitFrames(1);
    EXPECT_EQ(camera.nextPiece(transferLength), std::nullopt);
    EXPECT_EQ(camera.counters().framesSent, 0U);
    camera.setFrozen(false);
    camera.emitFrames(1);
    EXPECT_FALSE(awaitFrame().empty());
}

TEST_F(CameraTest, TransferFaultsComeInOrder)
{
    camera.addTransferFaults(TransferFault::Protocol, 1);
    camera.addTransferFaults(TransferFault::Overflow, 1);
    EXPECT_EQ(camera.takeTransferFault(), TransferFault::Protocol);
    EXPECT_EQ(camera.takeTransferFault(), TransferFault::Overflow);
    EXPECT_EQ(camera.takeTransferFault(), std::nullopt);
    EXPECT_EQ(camera.counters().transfersFailed, 2U);
}

TEST_F(CameraTest, ClearFaultsEndsThemAll)
{
    ControlFault fault;
    fault.requests = -1;
    camera.addControlFault(fault);
    camera.addTransferFaults(TransferFault::Protocol, 5);
    camera.setFrozen(true);
    camera.clearFaults();
    EXPECT_EQ(getGain().status, ControlStatus::Done);
    EXPECT_EQ(camera.takeTransferFault(), std::nullopt);
    commit();
    camera.emitFrames(1);
    EXPECT_FALSE(awaitFrame().empty());
}

TEST_F(CameraTest, ReplugRestoresThePowerUpStateWithANewSerial)
{
    setGamma(3);
    commit();
    camera.detach();
    EXPECT_FALSE(camera.isStreaming());
    camera.attach(77);
    EXPECT_EQ(camera.config().serial, 77U);
    EXPECT_EQ(camera.controls()[ControlId::Gamma].cur, 128);
    EXPECT_EQ(camera.controls()[ControlId::BacklightCompensation].cur, 77);
    EXPECT_EQ(camera.descriptors().strings.at(2), "77");
}

TEST_F(CameraTest, CountsResets)
{
    send({0x21, uvc::setCur, 0x0300, 0x0200, 2}, {4, 0});
    EXPECT_EQ(camera.counters().resets, 1U);
}

class FreeRunningCameraTest : public CameraTest
{
protected:
    FreeRunningCameraTest()
        : CameraTest("type4,sizes=32x16,rate=500")
    {
    }
};

TEST_F(FreeRunningCameraTest, WaitsForTheHostWithItsFirstFrame)
{
    commit();
    std::this_thread::sleep_for(50ms); // a host that takes its time before it can receive
    EXPECT_EQ(camera.counters().framesOverrun, 0U);
    EXPECT_EQ(awaitFrame().at(0), 0);
    // A reader that a busy machine holds up may miss later frames, each of which is counted.
    std::uint8_t next = 1;
    for (int frame = 0; frame < 10; ++frame) {
        const std::uint8_t number = awaitFrame().at(0);
        const std::uint8_t missed = number - next;
        EXPECT_LE(missed, camera.counters().framesOverrun);
        next = number + 1;
    }
}

TEST_F(FreeRunningCameraTest, RunsOnAfterAFirstFrameThatCannotBeTaken)
{
    camera.setFrozen(true);
    commit();
    std::this_thread::sleep_for(20ms);
    camera.setFrozen(false);
    EXPECT_FALSE(awaitFrame().empty());
}

TEST_F(FreeRunningCameraTest, DropsFramesThatTheHostDoesNotFetch)
{
    commit();
    ASSERT_TRUE(awaitPiece());
    const auto deadline = Clock::now() + 10s;
    while (camera.counters().framesOverrun == 0 && Clock::now() < deadline) {
        std::this_thread::sleep_for(1ms);
    }
    const Counters counters = camera.counters();
    EXPECT_GT(counters.framesOverrun, 0U);
    EXPECT_EQ(counters.framesStarted, 1U);
    EXPECT_LE(counters.framesProduced - counters.framesOverrun, 3U);
}

TEST_F(FreeRunningCameraTest, RunsAtItsRate)
{
    commit();
    const auto start = Clock::now();
    int frames = 0;
    while (Clock::now() - start < 300ms) {
        frames += awaitFrame().empty() ? 0 : 1;
    }
    EXPECT_GT(frames, 15); // 150 on an idle machine
    EXPECT_LE(frames, 152);
}

TEST(CameraMemory, CountsFramesThatNoMemoryCanHold)
{
    Camera camera(parseCamera("type4,sizes=32x16,rate=0", 1),
                  [](const FrameRequest&, Bytes&) { throw std::bad_alloc(); });
    const Bytes block = negotiate(camera.config(), {}).encode();
    camera.control({0x21, uvc::setCur, 0x0200, 1, 34}, block);
    camera.emitFrames(1);
    const auto deadline = Clock::now() + 1s;
    while (camera.counters().framesUnrendered == 0 && Clock::now() < deadline) {
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_EQ(camera.counters().framesUnrendered, 1U);
}

} // namespace
} // namespace zrnsim
