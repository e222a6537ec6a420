#include "client/stream.h"
#include "scripted_driver.h"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>

using namespace zrn;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace
{

/// No machine is so busy that what is waited for takes longer.
constexpr auto patience = 30s;

class StreamTest : public testing::Test
{
protected:
    StreamTest() { device->frameMilliseconds = 2; }

    template <typename Condition>
    bool waitFor(const Condition& condition) const
    {
        const auto end = Clock::now() + patience;
        while (!condition()) {
            if (Clock::now() > end) {
                return false;
            }
            std::this_thread::sleep_for(2ms);
        }
        return true;
    }

    /// The next event; fails when there is none.
    StreamEvent nextEvent(Stream& stream) const
    {
        std::optional<StreamEvent> event;
        EXPECT_TRUE(waitFor([&] {
            stream.next(0ms);
            event = stream.nextEvent();
            return event.has_value();
        }));
        return event.value_or(StreamEvent());
    }

    static StreamOptions keptAlive()
    {
        StreamOptions options;
        options.keepAlive = true;
        options.patience = 10ms;
        return options;
    }

    /// Grabs wait so long, in milliseconds.
    void setGrabTimeout(unsigned milliseconds) const
    {
        camera->setProperty(keys::maxGrabWaitTime, milliseconds);
    }

    const std::shared_ptr<ScriptedDevice> device =
        std::make_shared<ScriptedDevice>(QStringLiteral("ZR1"));
    std::shared_ptr<Driver> driver = ScriptedFactory::driverFor({device});
    std::shared_ptr<Camera> camera = Camera::open(driver);
};

TEST_F(StreamTest, HandsOutFramesAsTheCameraSentThem)
{
    camera->setExposure(2500us);
    camera->setGain(40);
    const auto before = Clock::now();
    Stream stream(camera);
    for (int i = 0; i < 5; ++i) {
        const std::optional<Frame> frame = stream.next(patience);
        ASSERT_TRUE(frame);
        ASSERT_EQ(frame->images().size(), 2U);
        EXPECT_EQ(frame->width, 64U);
        EXPECT_EQ(frame->height, 48U);
        EXPECT_EQ(frame->image('A')->pixels().size(), 64U * 48U);
        for (const Image& image : frame->images()) {
            EXPECT_EQ(bytesOf(image), scriptedImage(*device, frame->step.number, image.letter));
        }
        EXPECT_EQ(frame->exposure, 2500us);
        EXPECT_EQ(frame->gain, 40U);
        EXPECT_GE(frame->arrival, before);
        EXPECT_LE(frame->arrival, Clock::now());
        EXPECT_GT(frame->wait, 0ns);
    }
}

TEST_F(StreamTest, TheImageOfASingleSensorIsB)
{
    device->sensorCount = 1;
    camera->reopen();
    Stream stream(camera);
    const std::optional<Frame> frame = stream.next(patience);
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->images().size(), 1U);
    EXPECT_EQ(frame->image('A'), nullptr);
    EXPECT_NE(frame->image('B'), nullptr);
}

TEST_F(StreamTest, FramesOutliveStreamAndCameraAndKeepTheDriver)
{
    std::optional<Frame> frame;
    {
        Stream stream(camera);
        frame = stream.next(patience);
    }
    const std::weak_ptr<Driver> weakDriver = driver;
    camera.reset();
    driver.reset();
    ASSERT_TRUE(frame);
    EXPECT_EQ(bytesOf(frame->images()[0]), scriptedImage(*device, frame->step.number, 'A'));
    EXPECT_FALSE(weakDriver.expired());
    frame.reset();
    EXPECT_TRUE(weakDriver.expired());
}

TEST_F(StreamTest, CountsWhatIsMissing)
{
    Stream stream(camera);
    ASSERT_TRUE(stream.next(patience));
    device->skipNext = 3;
    std::uint32_t missing = 0;
    ASSERT_TRUE(waitFor([&] {
        const std::optional<Frame> frame = stream.next(patience);
        missing += frame ? frame->step.missing : 0;
        return missing > 0;
    }));
    EXPECT_EQ(missing, 3U);
    EXPECT_EQ(stream.counters().lost.camera, 3U);
    EXPECT_EQ(stream.counters().lost.ring, 0U);
    EXPECT_EQ(stream.counters().gaps, 1U);
}

TEST_F(StreamTest, ALossAfterALongPauseIsTheRings)
{
    StreamOptions options;
    options.policy = QueuePolicy::Block;
    options.capacity = 1;
    Stream stream(camera, options);
    for (int i = 0; i < 10; ++i) {
        ASSERT_TRUE(stream.next(patience));
    }
    std::this_thread::sleep_for(2s); // the ring holds 16 frames of 2 ms
    device->skipNext = 100;
    ASSERT_TRUE(waitFor([&] {
        stream.next(patience);
        return stream.counters().gaps > 0;
    }));
    EXPECT_EQ(stream.counters().lost.ring, 100U);
    EXPECT_EQ(stream.counters().lost.camera, 0U);
}

TEST_F(StreamTest, ADriverThatTellsTimesTellsThePlaceOfALoss)
{
    device->tellsTimes = true;
    camera.reset();
    camera = Camera::open(driver);
    Stream stream(camera);
    ASSERT_TRUE(stream.next(patience));
    device->ringLosses = 5;
    device->libraryLosses = 3;
    device->skipNext = 10;
    ASSERT_TRUE(waitFor([&] {
        stream.next(patience);
        return stream.counters().gaps > 0;
    }));
    EXPECT_EQ(stream.counters().lost.ring, 5U);
    EXPECT_EQ(stream.counters().lost.library, 3U);
    EXPECT_EQ(stream.counters().lost.camera, 2U);
    EXPECT_EQ(stream.counters().missing(), 10U);
}

TEST_F(StreamTest, FramesHaveTheTimesThatTheDriverTells)
{
    device->tellsTimes = true;
    camera.reset();
    camera = Camera::open(driver);
    Stream stream(camera);
    std::optional<Frame> frame = stream.next(patience);
    ASSERT_TRUE(frame);
    const auto first = FrameTimes::time_point(std::chrono::seconds(frame->step.number));
    EXPECT_EQ(frame->times.source, FrameTimes::Source::Payload);
    EXPECT_EQ(frame->times.firstPayload, first);
    EXPECT_EQ(frame->times.lastPayload, first + 2ns);
    EXPECT_EQ(frame->times.handOver, first + 3ns);
    EXPECT_EQ(frame->times.captured, 4U);
    EXPECT_EQ(frame->times.sent, 5U);
    EXPECT_EQ(frame->times.cameraHz, 48'000'000U);

    device->seesPayloads = false;
    ASSERT_TRUE(waitFor([&] {
        frame = stream.next(patience);
        return frame && frame->times.source == FrameTimes::Source::HandOver;
    }));
}

TEST_F(StreamTest, WithoutTimesTheArrivalStandsIn)
{
    Stream stream(camera);
    const std::optional<Frame> frame = stream.next(patience);
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->times.source, FrameTimes::Source::Grab);
    EXPECT_EQ(frame->times.firstPayload, frame->arrival);
    EXPECT_EQ(frame->times.handOver, frame->arrival);
    EXPECT_FALSE(frame->times.captured);
}

TEST_F(StreamTest, TellsTheTimeOfDayOfItsFrames)
{
    Stream stream(camera);
    const std::optional<Frame> frame = stream.next(patience);
    ASSERT_TRUE(frame);
    const WallTime time = stream.wallTime(frame->arrival);
    const auto ago = std::chrono::system_clock::now().time_since_epoch() - time.sinceEpoch;
    EXPECT_GE(ago, -time.error);
    EXPECT_LT(ago, patience);
    EXPECT_GT(time.error, 0ns);
    const WallTime later = stream.wallTime(frame->arrival + 1s); // by another reading
    EXPECT_LE(std::chrono::abs(later.sinceEpoch - time.sinceEpoch - 1s), time.error + later.error);
}

TEST_F(StreamTest, NewestKeepsOneFrame)
{
    StreamOptions options;
    options.policy = QueuePolicy::Newest;
    Stream stream(camera, options);
    ASSERT_TRUE(waitFor([&] { return stream.counters().frames >= 20; }));
    stream.stop();
    const StreamCounters counters = stream.counters();
    const std::optional<Frame> frame = stream.next(0ms);
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->step.number + 1, counters.frames);
    EXPECT_EQ(frame->dropped, counters.frames - 1);
    EXPECT_FALSE(stream.next(0ms));
    EXPECT_EQ(counters.lost.queue, counters.frames - 1);
}

TEST_F(StreamTest, AllKeepsTheLastFrames)
{
    StreamOptions options;
    options.capacity = 4;
    Stream stream(camera, options);
    ASSERT_TRUE(waitFor([&] { return stream.counters().frames >= 20; }));
    stream.stop();
    const StreamCounters counters = stream.counters();
    for (std::uint32_t left = 4; left > 0; --left) {
        const std::optional<Frame> frame = stream.next(0ms);
        ASSERT_TRUE(frame);
        EXPECT_EQ(frame->step.number + left, counters.frames);
        EXPECT_EQ(frame->dropped, left == 4 ? counters.frames - 4 : 0);
    }
    EXPECT_FALSE(stream.next(0ms));
    EXPECT_EQ(counters.lost.queue, counters.frames - 4);
}

TEST_F(StreamTest, BlockLosesNothingInTheQueue)
{
    StreamOptions options;
    options.policy = QueuePolicy::Block;
    options.capacity = 2;
    Stream stream(camera, options);
    std::this_thread::sleep_for(200ms);
    EXPECT_LE(stream.counters().frames, 3U);
    for (std::uint32_t number = 0; number < 20; ++number) {
        const std::optional<Frame> frame = stream.next(patience);
        ASSERT_TRUE(frame);
        EXPECT_EQ(frame->step.number, number);
    }
    EXPECT_EQ(stream.counters().lost.queue, 0U);
}

TEST_F(StreamTest, StopWakesEverybodyWhoWaits)
{
    device->silent = true;
    setGrabTimeout(60000);
    Stream stream(camera);
    std::thread waiting([&] { EXPECT_FALSE(stream.next(patience)); });
    std::this_thread::sleep_for(20ms);
    const auto begin = Clock::now();
    stream.stop();
    waiting.join();
    EXPECT_LT(Clock::now() - begin, 10s);
    EXPECT_TRUE(stream.isStopped());
}

TEST_F(StreamTest, StopEndsAGrabThatIsBlockedByAFullQueue)
{
    StreamOptions options;
    options.policy = QueuePolicy::Block;
    options.capacity = 1;
    Stream stream(camera, options);
    ASSERT_TRUE(waitFor([&] { return stream.counters().frames >= 2; }));
    stream.stop();
    EXPECT_EQ(stream.counters().lost.queue, 1U);
}

TEST_F(StreamTest, ACameraHasOneStreamAtATime)
{
    {
        const Stream stream(camera);
        EXPECT_THROW(Stream second(camera), Error);
    }
    Stream next(camera);
    EXPECT_TRUE(next.next(patience));
}

TEST_F(StreamTest, AStreamThatCannotBeStartedThrows)
{
    device->startAnswer = ErrorCode::StreamStartFailed;
    try {
        const Stream stream(camera);
        FAIL() << "no exception";
    } catch (const Error& error) {
        EXPECT_EQ(error.code(), ErrorCode::StreamStartFailed);
    }
    device->startAnswer = ErrorCode::Success;
    EXPECT_NO_THROW(Stream stream(camera));
}

TEST_F(StreamTest, CallbacksTakeTheFrames)
{
    std::atomic<int> frames = 0;
    StreamOptions options;
    options.onFrame = [&frames](const Frame&) { ++frames; };
    Stream stream(camera, options);
    ASSERT_TRUE(waitFor([&] { return frames >= 5; }));
    EXPECT_FALSE(stream.next(0ms));
    EXPECT_FALSE(stream.isReady());
    stream.stop();
    EXPECT_TRUE(stream.isReady());
}

TEST_F(StreamTest, TellsOfFramesAndOfItsEnd)
{
    std::atomic<int> told = 0;
    StreamOptions options;
    options.onReady = [&told] { ++told; };
    Stream stream(camera, options);
    EXPECT_TRUE(waitFor([&] { return told > 0; }));
    EXPECT_TRUE(stream.isReady());
    EXPECT_TRUE(stream.next(0ms));
    stream.stop();
    told = 0;
    stream.stop();
    EXPECT_EQ(told, 1);
}

TEST_F(StreamTest, TellsOfEvents)
{
    std::atomic<bool> isTold = false;
    StreamOptions options = keptAlive();
    options.onFrame = [](const Frame&) {}; // so that it tells of nothing else
    options.onReady = [&isTold] { isTold = true; };
    setGrabTimeout(50);
    device->silent = true;
    Stream stream(camera, options);
    EXPECT_TRUE(waitFor([&] { return isTold.load(); }));
    EXPECT_TRUE(stream.isReady());
    EXPECT_TRUE(stream.nextEvent());
}

TEST_F(StreamTest, ACallbackMayStopAndDestroyItsStream)
{
    std::unique_ptr<Stream> stream;
    std::mutex mutex;
    std::atomic<bool> isOver = false;
    StreamOptions options;
    options.onFrame = [&](const Frame&) {
        const std::lock_guard lock(mutex);
        stream->stop();
        stream.reset();
        isOver = true;
    };
    {
        const std::lock_guard lock(mutex);
        stream = std::make_unique<Stream>(camera, options);
    }
    ASSERT_TRUE(waitFor([&] { return isOver.load(); }));
    const std::lock_guard lock(mutex);
    EXPECT_FALSE(stream);
}

TEST_F(StreamTest, NothingIsCalledAfterAnEventsCallbackDestroyedItsStream)
{
    setGrabTimeout(20);
    for (const auto last : {StreamEvent::Kind::Lost, StreamEvent::Kind::Refused,
                            StreamEvent::Kind::Restarted, StreamEvent::Kind::Back}) {
        std::unique_ptr<Stream> stream;
        std::mutex mutex;
        std::atomic<bool> isOver = false;
        std::atomic<int> callsAfter = 0;
        StreamOptions options = keptAlive();
        options.onFrame = [&](const Frame&) { callsAfter += isOver ? 1 : 0; };
        options.onEvent = [&](const StreamEvent& event) {
            callsAfter += isOver ? 1 : 0;
            if (event.kind == last) {
                {
                    const std::lock_guard lock(mutex);
                    stream.reset();
                }
                isOver = true;
            }
        };
        {
            const std::lock_guard lock(mutex);
            stream = std::make_unique<Stream>(camera, options);
        }
        ASSERT_TRUE(waitFor([&] { return camera->status().frameRate >= 0; }));
        if (last == StreamEvent::Kind::Restarted) {
            const int starts = device->startCount;
            device->silent = true;
            ASSERT_TRUE(waitFor([&] { return device->startCount > starts; }));
            device->silent = false;
        } else {
            device->unplug();
            device->heldElsewhere = last == StreamEvent::Kind::Refused;
            std::this_thread::sleep_for(100ms);
            if (last != StreamEvent::Kind::Lost) {
                device->replug();
            }
        }
        ASSERT_TRUE(waitFor([&] { return isOver.load(); })) << static_cast<int>(last);
        const int openings = device->openCount;
        std::this_thread::sleep_for(50ms);
        EXPECT_EQ(callsAfter, 0) << static_cast<int>(last);
        EXPECT_EQ(device->openCount, openings) << static_cast<int>(last);
        device->heldElsewhere = false;
        device->replug();
        camera->reopen();
    }
}

TEST_F(StreamTest, ASilentCameraIsRestarted)
{
    setGrabTimeout(50);
    Stream stream(camera, keptAlive());
    ASSERT_TRUE(stream.next(patience));
    device->silent = true;
    const StreamEvent lost = nextEvent(stream);
    EXPECT_EQ(lost.kind, StreamEvent::Kind::Lost);
    EXPECT_EQ(lost.outage.cause, Outage::Cause::Silent);
    device->silent = false;
    const StreamEvent back = nextEvent(stream);
    EXPECT_EQ(back.kind, StreamEvent::Kind::Restarted);
    EXPECT_EQ(back.outage.repair, Outage::Repair::Restarted);
    EXPECT_GT(back.outage.seconds, 0.0);
    ASSERT_EQ(stream.outages().size(), 1U);
    EXPECT_EQ(stream.outages()[0].text(), back.outage.text());
}

TEST_F(StreamTest, ACameraThatStaysSilentIsOpenedAnew)
{
    setGrabTimeout(20);
    Stream stream(camera, keptAlive());
    ASSERT_TRUE(stream.next(patience));
    const int openings = device->openCount;
    device->silent = true;
    ASSERT_TRUE(waitFor([&] { return device->openCount > openings; }));
    device->silent = false;
    EXPECT_EQ(nextEvent(stream).kind, StreamEvent::Kind::Lost);
    // A grab that waits when the silence ends still times out, and the next restart helps.
    EXPECT_THAT(nextEvent(stream).kind,
                testing::AnyOf(StreamEvent::Kind::Back, StreamEvent::Kind::Restarted));
    EXPECT_EQ(stream.outages().size(), 1U);
}

TEST_F(StreamTest, ACameraThatWasPluggedInAgainIsBackWithItsSettings)
{
    setGrabTimeout(50);
    camera->setExposure(2500us);
    Stream stream(camera, keptAlive());
    ASSERT_TRUE(stream.next(patience));
    device->unplug();
    const StreamEvent lost = nextEvent(stream);
    EXPECT_EQ(lost.kind, StreamEvent::Kind::Lost);
    EXPECT_EQ(lost.outage.cause, Outage::Cause::Gone);
    device->skipNext = 7;
    device->replug();
    const StreamEvent back = nextEvent(stream);
    EXPECT_EQ(back.kind, StreamEvent::Kind::Back);
    EXPECT_EQ(back.outage.repair, Outage::Repair::Reconnected);
    EXPECT_EQ(back.outage.missing, 7U);
    const std::lock_guard lock(device->mutex);
    EXPECT_EQ(device->exposure, 2500U);
}

TEST_F(StreamTest, SaysWhoHasTakenTheCamera)
{
    setGrabTimeout(50);
    Stream stream(camera, keptAlive());
    ASSERT_TRUE(stream.next(patience));
    device->heldElsewhere = true;
    device->replug();
    EXPECT_EQ(nextEvent(stream).kind, StreamEvent::Kind::Lost);
    const StreamEvent refused = nextEvent(stream);
    EXPECT_EQ(refused.kind, StreamEvent::Kind::Refused);
    EXPECT_THAT(refused.reason, testing::HasSubstr("in use by other (pid 4711)"));
    device->heldElsewhere = false;
    EXPECT_EQ(nextEvent(stream).kind, StreamEvent::Kind::Back);
}

TEST_F(StreamTest, ADamagedFrameIsNoOutage)
{
    StreamOptions options = keptAlive();
    options.patience = 60s;
    Stream stream(camera, std::move(options));
    ASSERT_TRUE(stream.next(patience));
    device->grabAnswer = ErrorCode::SplitFailed;
    ASSERT_TRUE(waitFor([&] { return stream.counters().unusable > 0; }));
    EXPECT_EQ(stream.counters().lastFailure, ErrorCode::SplitFailed);
    device->grabAnswer = ErrorCode::Success;
    ASSERT_TRUE(waitFor([&] { return stream.counters().lastFailure == ErrorCode::Success; }));
    EXPECT_FALSE(stream.nextEvent());
    EXPECT_TRUE(stream.outages().empty());
}

TEST_F(StreamTest, ALongExposureIsNoOutage)
{
    setGrabTimeout(20);
    camera->setExposure(500ms);
    Stream stream(camera, keptAlive());
    device->silent = true;
    ASSERT_TRUE(waitFor([&] { return stream.counters().timeouts >= 5; }));
    EXPECT_FALSE(stream.nextEvent());
    EXPECT_EQ(nextEvent(stream).kind, StreamEvent::Kind::Lost);
}

TEST_F(StreamTest, ARestartIsGivenTimeForALongExposure)
{
    setGrabTimeout(20);
    camera->setExposure(100ms);
    Stream stream(camera, keptAlive());
    ASSERT_TRUE(stream.next(patience));
    device->silent = true;
    EXPECT_EQ(nextEvent(stream).kind, StreamEvent::Kind::Lost);
    device->frameMilliseconds = 100; // longer than a grab waits
    device->silent = false;
    EXPECT_EQ(nextEvent(stream).kind, StreamEvent::Kind::Restarted);
}

TEST_F(StreamTest, NextMayWaitForGood)
{
    device->silent = true;
    Stream stream(camera);
    std::thread later([this] {
        std::this_thread::sleep_for(50ms);
        device->silent = false;
    });
    EXPECT_TRUE(stream.next(std::chrono::milliseconds::max()));
    later.join();
}

TEST_F(StreamTest, LossesToldWithADamagedFrameAreTheRings)
{
    device->tellsTimes = true;
    Stream stream(camera);
    ASSERT_TRUE(stream.next(patience));
    device->grabAnswer = ErrorCode::SplitFailed;
    ASSERT_TRUE(waitFor([&] { return stream.counters().unusable > 0; }));
    const std::uint64_t unusable = stream.counters().unusable;
    device->skipNext = 1;
    device->grabAnswer = ErrorCode::Success;
    ASSERT_TRUE(waitFor([&] { return stream.counters().missing() > 0; }));
    EXPECT_GE(stream.counters().unusable, unusable);
    EXPECT_EQ(stream.counters().lost.camera, 0U);
    EXPECT_EQ(stream.counters().lost.ring, 1U);
}

TEST_F(StreamTest, ASilenceIsAnOutageOnceItOutlastsThePatience)
{
    setGrabTimeout(20);
    StreamOptions options = keptAlive();
    options.patience = 500ms;
    Stream stream(camera, std::move(options));
    ASSERT_TRUE(stream.next(patience));
    EXPECT_EQ(stream.counters().silence, 0ns);
    device->silent = true;
    ASSERT_TRUE(waitFor([&] { return stream.counters().timeouts >= 5; }));
    EXPECT_FALSE(stream.nextEvent());
    EXPECT_FALSE(stream.counters().outage);
    EXPECT_EQ(nextEvent(stream).kind, StreamEvent::Kind::Lost);
    EXPECT_EQ(stream.counters().outage, Outage::Cause::Silent);
    EXPECT_GE(stream.counters().silence, 500ms);
    device->unplug();
    ASSERT_TRUE(waitFor([&] { return stream.counters().outage == Outage::Cause::Gone; }));
    device->silent = false;
    device->replug();
    StreamEvent event = nextEvent(stream);
    while (event.kind ==
           StreamEvent::Kind::Refused) { // while it was silent, where its repair came first
        event = nextEvent(stream);
    }
    EXPECT_EQ(event.kind, StreamEvent::Kind::Back);
    EXPECT_FALSE(stream.counters().outage);
    EXPECT_EQ(stream.counters().silence, 0ns);
}

TEST_F(StreamTest, AnUnfinishedOutageIsInTheAccount)
{
    setGrabTimeout(20);
    Stream stream(camera, keptAlive());
    ASSERT_TRUE(stream.next(patience));
    device->unplug();
    EXPECT_EQ(nextEvent(stream).kind, StreamEvent::Kind::Lost);
    stream.stop();
    ASSERT_EQ(stream.outages().size(), 1U);
    EXPECT_EQ(stream.outages()[0].repair, Outage::Repair::None);
    EXPECT_FALSE(stream.outages()[0].isMissingExact);
}

TEST_F(StreamTest, EndsAtAnyMomentOfAnOutage)
{
    setGrabTimeout(10);
    for (int delay = 0; delay < 60; delay += 3) {
        device->replug();
        camera->reopen();
        std::thread unplugging;
        {
            Stream stream(camera, keptAlive());
            unplugging = std::thread([&] {
                device->unplug();
                std::this_thread::sleep_for(15ms);
                device->replug();
            });
            std::this_thread::sleep_for(std::chrono::milliseconds(delay));
        }
        unplugging.join();
    }
}

} // namespace
