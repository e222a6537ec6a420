// Streams of the client library on the built plugin: cameras that leave at every moment, streams
// that end in every state, and consumers that are too slow.

#include "camera_rig.h"
#include "client/stream.h"
#include "serious_lines.h"

#include <algorithm>
#include <thread>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using survival::milliseconds;
using survival::within;
using zrn::Frame;
using zrn::QueuePolicy;
using zrn::StreamEvent;

constexpr auto longestWait = 20s;
constexpr milliseconds endBound(2500);

class ClientStream : public testing::Test
{
protected:
    ClientStream()
    {
        // Of a grab that the end of its stream wakes, for one.
        survival::expectLog("try lock grab event failed");
        bus.restore();
        open();
    }
    ~ClientStream() override { bus.restore(); }

    void open()
    {
        camera = zrn::Camera::open(driver);
        // An outage begins when a grab finds nothing for this long.
        camera->setProperty("MaxGrabWaitTime", std::int32_t{200});
    }

    /// What the driver says of a camera that leaves while it is used.
    static void expectLogOfOutages()
    {
        for (const char* line :
             {" uvc_get_gain get cur failed ret: -", "uvc_get_contrast failed ret: -",
              " uvc_get_exposure_abs get ", " uvc_set_",
              " uvc_(get_stream_ctrl_format_size|start_streaming) faild ret: -"}) {
            survival::expectLog(line);
        }
    }

    /// Whether a frame is one that the camera sent, byte for byte.
    void expectExact(const Frame& frame)
    {
        ASSERT_GE(frame.imageCount, 1U);
        const std::uint64_t trailer = frame.images().front().trailer();
        const auto request =
            bus.sentFrame(static_cast<std::uint32_t>(trailer),
                          static_cast<unsigned>(zrn::knownFrameNumberBits(trailer)));
        ASSERT_TRUE(request) << "the camera sent no frame with trailer " << std::hex << trailer;
        expectImages(frame, *request);
    }

    static void expectImages(const Frame& frame, const zrnsim::FrameRequest& request)
    {
        const zrnsim::SentImages sent = zrnsim::expectedImages(request);
        ASSERT_EQ(frame.imageCount, static_cast<std::size_t>(sent.hasA) + sent.hasB);
        EXPECT_TRUE(!sent.hasA || std::ranges::equal(frame.image('A')->pixels(), sent.a));
        EXPECT_TRUE(!sent.hasB || std::ranges::equal(frame.image('B')->pixels(), sent.b));
    }

    /// The number of a frame, as the camera gave it.
    std::uint32_t sentNumber(const Frame& frame)
    {
        const std::uint64_t trailer = frame.images().front().trailer();
        const auto request =
            bus.sentFrame(static_cast<std::uint32_t>(trailer),
                          static_cast<unsigned>(zrn::knownFrameNumberBits(trailer)));
        EXPECT_TRUE(request) << "the camera sent no frame with trailer " << std::hex << trailer;
        return request ? request->frameNumber : 0;
    }

    /// Takes frames until there is an event of this kind. @return whether there was one
    static bool waitForEvent(zrn::Stream& stream, StreamEvent::Kind kind)
    {
        const auto end = Clock::now() + longestWait;
        while (Clock::now() < end) {
            while (const std::optional<StreamEvent> event = stream.nextEvent()) {
                if (event->kind == kind) {
                    return true;
                }
            }
            stream.next(10ms);
        }
        return false;
    }

    VirtualCamera bus;
    const std::shared_ptr<zrn::Driver> driver = zrn::Driver::load(ZRN_PLUGIN);
    std::shared_ptr<zrn::Camera> camera;
};

zrn::StreamOptions keptAlive()
{
    zrn::StreamOptions options;
    options.policy = QueuePolicy::Newest;
    options.keepAlive = true;
    options.patience = 50ms;
    return options;
}

TEST_F(ClientStream, IsBackAfterAnOutageAtAnyMoment)
{
    expectLogOfOutages();
    camera->setGain(77);
    zrn::Stream stream(camera, keptAlive());
    std::size_t outages = 0;
    for (const auto moment : {0ms, 1ms, 5ms, 17ms, 50ms, 200ms}) {
        SCOPED_TRACE(moment.count());
        ASSERT_TRUE(stream.next(longestWait));
        std::this_thread::sleep_for(moment);
        bus.unplug();
        ASSERT_TRUE(waitForEvent(stream, StreamEvent::Kind::Lost));
        std::this_thread::sleep_for(moment); // into its repairs
        bus.restore();
        ASSERT_TRUE(waitForEvent(stream, StreamEvent::Kind::Back));
        ++outages;
        const std::optional<Frame> frame = stream.next(longestWait);
        ASSERT_TRUE(frame);
        expectExact(*frame);
        EXPECT_EQ(camera->gain(), 77U);
    }
    stream.stop();
    ASSERT_EQ(stream.outages().size(), outages);
    for (const zrn::Outage& outage : stream.outages()) {
        EXPECT_EQ(outage.repair, zrn::Outage::Repair::Reconnected);
    }
}

TEST_F(ClientStream, EndsAtAnyMomentOfAnOutage)
{
    expectLogOfOutages();
    for (const bool isPluggedInAgain : {false, true}) {
        for (auto moment = 0ms; moment < 800ms; moment += 80ms) {
            SCOPED_TRACE(std::to_string(moment.count()) +
                         (isPluggedInAgain ? " ms after it is back" : " ms after it left"));
            auto stream = std::make_unique<zrn::Stream>(camera, keptAlive());
            ASSERT_TRUE(stream->next(longestWait));
            bus.unplug();
            if (isPluggedInAgain) {
                std::this_thread::sleep_for(300ms);
                bus.restore();
            }
            std::this_thread::sleep_for(moment);
            within(endBound, "end", [&stream] {
                stream.reset();
                return 0;
            });
            camera.reset();
            bus.restore();
            open();
        }
    }
}

TEST_F(ClientStream, FramesOutliveWhatTheyCameFrom)
{
    const std::weak_ptr<zrn::Camera> watch = camera;
    std::vector<Frame> frames;
    {
        zrn::Stream stream(camera, {.policy = QueuePolicy::Block});
        while (frames.size() < 10) {
            std::optional<Frame> frame = stream.next(longestWait);
            ASSERT_TRUE(frame);
            frames.push_back(*std::move(frame));
        }
    }
    camera.reset();
    EXPECT_TRUE(watch.expired());
    for (const Frame& frame : frames) {
        expectExact(frame);
    }
}

/// A consumer that takes longer for a frame than the camera.
class SlowConsumer : public ClientStream, public testing::WithParamInterface<QueuePolicy>
{
};

TEST_P(SlowConsumer, GetsExactFramesAndAnAccountOfAllOthers)
{
    const std::uint64_t sentBefore = bus.counter("framesStarted");
    zrn::Stream stream(camera, {.policy = GetParam(), .capacity = 4});
    std::uint64_t taken = 0;
    std::uint32_t last = 0;
    const auto take = [&](const Frame& frame) {
        EXPECT_TRUE(taken == 0 || frame.step.number > last) << last;
        last = frame.step.number;
        ++taken;
    };
    /// The account of all frames up to one that was taken, and the number of that.
    struct Account {
        zrn::StreamCounters counters;
        std::uint32_t number = 0;
    };
    const auto takeAll = [&] {
        zrn::StreamCounters counters;
        std::optional<Frame> frame;
        do { // quicker than the camera, also on a slow machine
            frame = stream.next(patience);
            if (!frame) {
                ADD_FAILURE() << "no frame";
                return Account();
            }
            take(*frame);
            counters = stream.counters();
        } while (counters.frames != taken + counters.lost.queue);
        return Account{counters, sentNumber(*frame)};
    };
    const Account begin = takeAll();
    std::vector<Frame> takenSlowly;
    for (int i = 0; i < 10; ++i) {
        const std::optional<Frame> frame = stream.next(longestWait);
        ASSERT_TRUE(frame);
        take(*frame);
        takenSlowly.push_back(*frame);
        std::this_thread::sleep_for(100ms);
    }
    const Account end = takeAll();
    std::this_thread::sleep_for(600ms); // the end finds the queue full
    stream.stop();
    while (const std::optional<Frame> frame = stream.next(0ms)) {
        take(*frame);
    }
    const zrn::StreamCounters counters = stream.counters();
    EXPECT_EQ(counters.frames, taken + counters.lost.queue);
    if (GetParam() == QueuePolicy::Block) {
        EXPECT_LE(counters.lost.queue, 1U); // the one that came too late for the end
    } else {
        EXPECT_GT(counters.lost.queue, 10U);
    }
    EXPECT_EQ(counters.unusable, 0U);

    // Asked once, afterwards: an answer takes as long as many frames. What the trailers show of
    // their numbers comes again after 256 frames at the soonest.
    const std::vector<SentFrame> sent = bus.sentFrames(sentBefore);
    auto own = sent.begin();
    for (const Frame& frame : takenSlowly) {
        const std::uint64_t trailer = frame.images().front().trailer();
        const std::uint64_t shown = (std::uint64_t{1} << zrn::knownFrameNumberBits(trailer)) - 1;
        own = std::find_if(own, sent.end(), [=](const SentFrame& other) {
            return other.request.frameNumber > begin.number &&
                   ((other.request.frameNumber ^ trailer) & shown) == 0;
        });
        ASSERT_TRUE(own != sent.end()) << "no frame sent then has trailer " << std::hex << trailer;
        expectImages(frame, own->request);
    }

    // A camera that is starved passes over numbers, too.
    EXPECT_EQ(end.counters.frames - begin.counters.frames + end.counters.missing() -
                  begin.counters.missing(),
              end.number - begin.number);
    if (GetParam() == QueuePolicy::Block) {
        EXPECT_GT(end.counters.lost.ring, begin.counters.lost.ring);
    }
}

INSTANTIATE_TEST_SUITE_P(EveryPolicy, SlowConsumer,
                         testing::Values(QueuePolicy::Newest, QueuePolicy::All,
                                         QueuePolicy::Block));

} // namespace
