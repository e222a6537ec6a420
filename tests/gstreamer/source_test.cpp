// The element by itself: states, events, queries, caps, buffers.

#include "client/bus.h"
#include "pipeline.h"
#include "sent_images.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <gst/check/gstharness.h>
#include <gst/controller/gstdirectcontrolbinding.h>
#include <gst/controller/gstinterpolationcontrolsource.h>
#include <gst/video/video.h>
#include <map>
#include <optional>
#include <random>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

std::chrono::duration<double> timeOf(const auto& operation)
{
    const auto begin = Clock::now();
    operation();
    return Clock::now() - begin;
}

class Source : public testing::Test
{
protected:
    Source()
    {
        camera.restore();
        camera.tell("frame-number", {{"number", std::int64_t{0}}}); // which frames show in full
    }
    ~Source() override { camera.restore(); }

    VirtualCamera camera;
};

/// Both pads of an element, without a pipeline.
class HarnessedSource
{
public:
    explicit HarnessedSource(GstElement* element = gst_element_factory_make("zrnsrc", nullptr))
        : m_element(element)
        , a(gst_harness_new_with_element(element, nullptr, "src_a"))
        , b(gst_harness_new_with_element(element, nullptr, "src_b"))
    {
        gst_harness_use_systemclock(a);
    }
    ~HarnessedSource()
    {
        gst_harness_teardown(b);
        gst_harness_teardown(a);
        gst_object_unref(m_element);
    }
    HarnessedSource(const HarnessedSource&) = delete;
    HarnessedSource& operator=(const HarnessedSource&) = delete;

    void play() const { gst_harness_play(a); }
    GstElement* element() const { return m_element; }

private:
    GstElement* m_element;

public:
    GstHarness* a;
    GstHarness* b;
};

GstClockTime reference(GstBuffer* buffer, const char* caps)
{
    const CapsPtr kind(gst_caps_from_string(caps));
    const auto* meta = gst_buffer_get_reference_timestamp_meta(buffer, kind.get());
    return meta ? meta->timestamp : GST_CLOCK_TIME_NONE;
}

GstClockTime toGst(std::chrono::nanoseconds time)
{
    return static_cast<GstClockTime>(time.count());
}

SamplePtr pullSample(GstHarness* harness)
{
    GstBuffer* const buffer = gst_harness_pull(harness);
    if (!buffer) {
        return nullptr;
    }
    const CapsPtr caps(gst_pad_get_current_caps(harness->sinkpad));
    SamplePtr sample(gst_sample_new(buffer, caps.get(), nullptr, nullptr));
    gst_buffer_unref(buffer);
    return sample;
}

TEST_F(Source, ChangesStatesInEveryOrder)
{
    Pipeline pipeline("zrnsrc name=s  s.src_a ! queue ! fakesink  s.src_b ! queue ! fakesink");
    constexpr std::array states{GST_STATE_NULL, GST_STATE_READY, GST_STATE_PAUSED,
                                GST_STATE_PLAYING};
    std::mt19937 random(21);
    for (int i = 0; i < 100; ++i) {
        const GstState state = states[random() % states.size()];
        SCOPED_TRACE(gst_element_state_get_name(state));
        ASSERT_NE(pipeline.setState(state), GST_STATE_CHANGE_FAILURE);
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 30));
    }
    pipeline.play();
    EXPECT_TRUE(pipeline.message(GST_MESSAGE_STREAM_START));
    while (!pipeline.message(GST_MESSAGE_ERROR, 0ms)) {
        std::uint64_t frames = 0;
        GstStructure* statistics = nullptr;
        g_object_get(pipeline.element("s"), "statistics", &statistics, nullptr);
        gst_structure_get_uint64(statistics, "frames", &frames);
        gst_structure_free(statistics);
        if (frames > 5) {
            return;
        }
        std::this_thread::sleep_for(10ms);
    }
    FAIL() << "an error";
}

TEST_F(Source, IsLive)
{
    Pipeline pipeline("zrnsrc ! fakesink");
    EXPECT_EQ(pipeline.setState(GST_STATE_PAUSED), GST_STATE_CHANGE_NO_PREROLL);
    EXPECT_EQ(pipeline.setState(GST_STATE_PLAYING), GST_STATE_CHANGE_ASYNC);
    EXPECT_EQ(gst_element_get_state(pipeline.get(), nullptr, nullptr, 10 * GST_SECOND),
              GST_STATE_CHANGE_SUCCESS);
    EXPECT_EQ(pipeline.setState(GST_STATE_PAUSED), GST_STATE_CHANGE_NO_PREROLL);
}

TEST_F(Source, GivesBothImagesOfAFrameWithOneTime)
{
    const auto beginning = std::chrono::system_clock::now().time_since_epoch();
    std::vector<std::pair<SamplePtr, SamplePtr>> frames;
    {
        const HarnessedSource source;
        source.play();
        for (int i = 0; i < 20; ++i) {
            SamplePtr a = pullSample(source.a);
            SamplePtr b = pullSample(source.b);
            frames.emplace_back(std::move(a), std::move(b));
        }
    }
    GstClockTime last = 0;
    std::uint64_t number = GST_BUFFER_OFFSET_NONE - 1; // followed by none
    for (const auto& [sampleA, sampleB] : frames) {
        ASSERT_TRUE(sampleA && sampleB);
        GstBuffer* const a = gst_sample_get_buffer(sampleA.get());
        GstBuffer* const b = gst_sample_get_buffer(sampleB.get());
        EXPECT_TRUE(GST_BUFFER_PTS_IS_VALID(a));
        EXPECT_GE(GST_BUFFER_PTS(a), last);
        last = GST_BUFFER_PTS(a);
        EXPECT_EQ(GST_BUFFER_PTS(a), GST_BUFFER_PTS(b));
        EXPECT_EQ(GST_BUFFER_DURATION(a), GST_BUFFER_DURATION(b));
        EXPECT_NEAR(static_cast<double>(GST_BUFFER_DURATION(a)), 1e9 / 60, 100);
        EXPECT_EQ(GST_BUFFER_OFFSET(a), GST_BUFFER_OFFSET(b));
        EXPECT_EQ(GST_BUFFER_FLAG_IS_SET(a, GST_BUFFER_FLAG_DISCONT),
                  GST_BUFFER_OFFSET(a) != number + 1);
        number = GST_BUFFER_OFFSET(a);
        EXPECT_EQ(reference(a, "timestamp/x-zrn-frame"), number);
        EXPECT_GE(reference(a, "timestamp/x-unix"), toGst(beginning));
        EXPECT_LE(reference(a, "timestamp/x-unix"),
                  toGst(std::chrono::system_clock::now().time_since_epoch()));
        isSentImage(camera, number, 'A', sampleA.get());
        isSentImage(camera, number, 'B', sampleB.get());
    }
}

TEST_F(Source, TellsSizeAndRateFromReadyOn)
{
    const HarnessedSource source;
    const auto capsText = [&] {
        GstPad* const pad = gst_element_get_static_pad(source.element(), "src_b");
        const CapsPtr caps(gst_pad_query_caps(pad, nullptr));
        gst_object_unref(pad);
        gchar* const text = gst_caps_to_string(caps.get());
        const std::string result(text);
        g_free(text);
        return result;
    };
    EXPECT_NE(capsText().find("video/x-bayer"), std::string::npos);
    gst_element_set_state(source.element(), GST_STATE_READY);
    EXPECT_EQ(capsText(), "video/x-raw, format=(string)GRAY8, width=(int)320, height=(int)240, "
                          "framerate=(fraction)60/1");
    g_object_set(source.element(), "bayer", 4, nullptr);
    EXPECT_EQ(capsText(), "video/x-bayer, format=(string)rggb, width=(int)320, height=(int)240, "
                          "framerate=(fraction)60/1");
}

TEST_F(Source, AnswersItsLatency)
{
    const HarnessedSource source;
    source.play();
    gst_buffer_unref(gst_harness_pull(source.a));
    const QueryPtr query(gst_query_new_latency());
    GstPad* const pad = gst_element_get_static_pad(source.element(), "src_a");
    ASSERT_TRUE(gst_pad_query(pad, query.get()));
    gst_object_unref(pad);
    gboolean isLive = FALSE;
    GstClockTime shortest = 0;
    GstClockTime longest = 0;
    gst_query_parse_latency(query.get(), &isLive, &shortest, &longest);
    EXPECT_TRUE(isLive);
    EXPECT_NEAR(static_cast<double>(shortest), 1e9 / 60, 1e3);
    EXPECT_NEAR(static_cast<double>(longest), 17e9 / 60, 1e5);
}

TEST_F(Source, TellsHowFarItHasCome)
{
    const HarnessedSource source;
    source.play();
    GstClockTime last = 0;
    for (int i = 0; i < 5; ++i) {
        GstBuffer* const buffer = gst_harness_pull(source.a);
        gint64 position = -1;
        ASSERT_TRUE(gst_element_query_position(source.element(), GST_FORMAT_TIME, &position));
        EXPECT_GE(position, static_cast<gint64>(GST_BUFFER_PTS(buffer)));
        EXPECT_GT(position, static_cast<gint64>(last));
        last = GST_BUFFER_PTS(buffer);
        gst_buffer_unref(buffer);
    }
    gint64 bytes = 0;
    EXPECT_FALSE(gst_element_query_position(source.element(), GST_FORMAT_BYTES, &bytes));
}

/// On the clock of the pipeline, which is CLOCK_MONOTONIC.
TEST_F(Source, TellsWhenTheFirstPayloadWasHere)
{
    const HarnessedSource source;
    source.play();
    std::vector<std::pair<std::uint64_t, GstClockTime>> pulled;
    for (int i = 0; i < 20; ++i) {
        GstBuffer* const buffer = gst_harness_pull(source.a);
        const GstClockTime now = gst_util_get_timestamp();
        const GstClockTime time =
            GST_BUFFER_PTS(buffer) + gst_element_get_base_time(source.element());
        EXPECT_LE(time, now);
        pulled.emplace_back(GST_BUFFER_OFFSET(buffer), time);
        gst_buffer_unref(buffer);
    }
    const std::vector<SentFrame> sent = camera.sentFrames();
    for (const auto& frame : pulled) {
        const double time = static_cast<double>(frame.second) / 1e9;
        // Of a number the low byte is sure, and that comes again after four seconds.
        std::optional<double> taken;
        for (const SentFrame& other : sent) {
            const bool isLike = ((other.request.frameNumber ^ frame.first) & 0xff) == 0;
            if (isLike && other.taken &&
                (!taken || std::abs(*other.taken - time) < std::abs(*taken - time))) {
                taken = other.taken;
            }
        }
        ASSERT_TRUE(taken);
        constexpr double rounding = 1e-6; // the clocks are read one after the other
        EXPECT_GE(time, *taken - rounding);
    }
}

/// A setting for each frame, at the frame's time.
TEST_F(Source, IsControlledAlongTheStream)
{
    Pipeline pipeline("zrnsrc name=s num-buffers=30 ! appsink name=a");
    GstElement* const source = pipeline.element("s");
    GstControlSource* const ramp = gst_interpolation_control_source_new();
    g_object_set(ramp, "mode", GST_INTERPOLATION_MODE_NONE, nullptr);
    auto* const values = GST_TIMED_VALUE_CONTROL_SOURCE(ramp);
    gst_timed_value_control_source_set(values, 0, 11);
    gst_timed_value_control_source_set(values, 200 * GST_MSECOND, 22);
    gst_object_add_control_binding(GST_OBJECT(source), gst_direct_control_binding_new_absolute(
                                                           GST_OBJECT(source), "gain", ramp));
    gst_object_unref(ramp);
    pipeline.play();
    while (pipeline.pull("a")) {
    }
    int gain = 0;
    g_object_get(source, "gain", &gain, nullptr);
    EXPECT_EQ(gain, 22);
    EXPECT_FALSE(pipeline.message(GST_MESSAGE_WARNING, 0ms));
}

TEST_F(Source, WrapsTheDriversMemory)
{
    const HarnessedSource source;
    source.play();
    GstBuffer* const buffer = gst_harness_pull(source.a);
    GstMemory* const memory = gst_buffer_peek_memory(buffer, 0);
    EXPECT_EQ(gst_buffer_n_memory(buffer), 1U);
    EXPECT_EQ(memory->size, 320U * 240U);
    EXPECT_TRUE(GST_MEMORY_IS_READONLY(memory));
    gst_buffer_unref(buffer);
}

TEST_F(Source, SamplesOutliveElementAndPipeline)
{
    std::vector<std::pair<std::uint64_t, SamplePtr>> samples;
    {
        Pipeline pipeline("zrnsrc ! appsink name=sink");
        pipeline.play();
        for (int i = 0; i < 10; ++i) {
            SamplePtr sample = pipeline.pull("sink");
            ASSERT_TRUE(sample);
            const std::uint64_t number = GST_BUFFER_OFFSET(gst_sample_get_buffer(sample.get()));
            samples.emplace_back(number, std::move(sample));
        }
    }
    for (const auto& [number, sample] : samples) {
        isSentImage(camera, number, 'A', sample.get());
    }
}

std::chrono::duration<double> flush(const HarnessedSource& source)
{
    return timeOf([&] {
        gst_element_send_event(source.element(), gst_event_new_flush_start());
        gst_element_send_event(source.element(), gst_event_new_flush_stop(FALSE));
    });
}

TEST_F(Source, FlushesAndGoesOn)
{
    const HarnessedSource source;
    source.play();
    gst_buffer_unref(gst_harness_pull(source.a));
    for (int i = 0; i < 20; ++i) {
        flush(source);
        while (GstBuffer* stale = gst_harness_try_pull(source.a)) {
            gst_buffer_unref(stale);
        }
        GstBuffer* const buffer = gst_harness_pull(source.a);
        ASSERT_TRUE(buffer);
        gst_buffer_unref(buffer);
    }
}

TEST_F(Source, IsUnlockedAtOnceWhileItWaits)
{
    const HarnessedSource source;
    source.play();
    gst_buffer_unref(gst_harness_pull(source.a));
    std::chrono::duration<double> shortest = patience; // on a machine that does other things, too
    for (int i = 0; i < 10; ++i) {
        camera.tell("freeze");
        std::this_thread::sleep_for(50ms);
        shortest = std::min(shortest, flush(source));
        gst_element_set_state(source.element(), GST_STATE_READY);
        camera.tell("thaw");
        source.play();
        GstBuffer* const buffer = gst_harness_pull(source.a);
        ASSERT_TRUE(buffer);
        gst_buffer_unref(buffer);
    }
    EXPECT_LE(shortest.count(), 0.05);
}

TEST_F(Source, EndsWhenItIsTold)
{
    Pipeline pipeline("zrnsrc name=s  s.src_a ! queue ! fakesink  s.src_b ! queue ! fakesink");
    pipeline.play();
    ASSERT_TRUE(pipeline.message(GST_MESSAGE_STREAM_START));
    gst_element_send_event(pipeline.get(), gst_event_new_eos());
    EXPECT_TRUE(pipeline.message(GST_MESSAGE_EOS));
}

TEST_F(Source, EndsAfterSoManyFrames)
{
    Pipeline pipeline("zrnsrc num-buffers=7 name=s  s.src_a ! queue ! fakesink "
                      "s.src_b ! queue ! appsink name=b");
    pipeline.play();
    int frames = 0;
    while (pipeline.pull("b")) {
        ++frames;
    }
    EXPECT_EQ(frames, 7);
    EXPECT_TRUE(pipeline.message(GST_MESSAGE_EOS));
}

TEST_F(Source, GoesOnWithOnePadLinked)
{
    Pipeline pipeline("zrnsrc num-buffers=5 name=s  s.src_b ! appsink name=b");
    pipeline.play();
    const SamplePtr sample = pipeline.pull("b");
    ASSERT_TRUE(sample);
    isSentImage(camera, GST_BUFFER_OFFSET(gst_sample_get_buffer(sample.get())), 'B', sample.get());
    while (pipeline.pull("b")) {
    }
    EXPECT_TRUE(pipeline.message(GST_MESSAGE_EOS));
}

TEST_F(Source, FailsWithNoPadLinked)
{
    Pipeline pipeline("zrnsrc");
    pipeline.play();
    EXPECT_NE(pipeline.errorText().find("not-linked"), std::string::npos);
}

TEST_F(Source, SetsTheCameraWhilePlaying)
{
    Pipeline pipeline("zrnsrc name=s exposure=1234 gain=5 r-gain=77 ! appsink name=a");
    pipeline.play();
    ASSERT_TRUE(pipeline.pull("a"));
    GstElement* const source = pipeline.element("s");
    const auto value = [source](const char* name) {
        int number = 0;
        g_object_get(source, name, &number, nullptr);
        return number;
    };
    EXPECT_EQ(value("exposure"), 1234);
    EXPECT_EQ(value("gain"), 5);
    EXPECT_EQ(value("r-gain"), 77);
    g_object_set(source, "exposure", 4321, "gain", 9, "b-gain", 33, nullptr);
    EXPECT_EQ(value("exposure"), 4321);
    EXPECT_EQ(value("gain"), 9);
    EXPECT_EQ(value("b-gain"), 33);
    g_signal_emit_by_name(source, "reset");
    EXPECT_NE(value("exposure"), 4321);
    EXPECT_FALSE(pipeline.message(GST_MESSAGE_WARNING, 0ms));
    g_object_set(source, "gain", 60000, nullptr);
    EXPECT_TRUE(pipeline.message(GST_MESSAGE_WARNING, 0ms)) << "out of the camera's range";
}

TEST_F(Source, TakesSnapshotsOfEitherPad)
{
    Pipeline pipeline("zrnsrc name=s ! fakesink");
    pipeline.play();
    for (const auto& [pad, letter] : {std::pair("src_a", 'A'), std::pair("src_b", 'B')}) {
        SamplePtr sample;
        for (const auto end = Clock::now() + patience; !sample && Clock::now() < end;) {
            GstSample* taken = nullptr;
            g_signal_emit_by_name(pipeline.element("s"), "snapshot", pad, &taken);
            sample.reset(taken);
        }
        ASSERT_TRUE(sample);
        isSentImage(camera, GST_BUFFER_OFFSET(gst_sample_get_buffer(sample.get())), letter,
                    sample.get());
    }
}

TEST_F(Source, CountsWhatIsMissing)
{
    const HarnessedSource source;
    GstBus* const bus = gst_bus_new();
    gst_element_set_bus(source.element(), bus);
    source.play();
    GstBuffer* const before = gst_harness_pull(source.a);
    const std::uint64_t number = GST_BUFFER_OFFSET(before);
    gst_buffer_unref(before);
    camera.tell("frame-number", {{"number", std::int64_t(number + 100)}});
    std::uint64_t last = number;
    std::uint64_t skipped = 0;
    while (skipped < 10) {
        GstBuffer* const buffer = gst_harness_pull(source.a);
        ASSERT_TRUE(buffer);
        skipped = GST_BUFFER_OFFSET(buffer) - last - 1;
        EXPECT_EQ(GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DISCONT), skipped > 0);
        last = GST_BUFFER_OFFSET(buffer);
        gst_buffer_unref(buffer);
    }
    guint64 dropped = 0;
    while (dropped < 10) { // a busy machine may have lost some of its own before
        const MessagePtr message(gst_bus_timed_pop_filtered(bus, 10 * GST_SECOND, GST_MESSAGE_QOS));
        ASSERT_TRUE(message);
        dropped = lossOf(message.get()).second;
    }
    EXPECT_EQ(dropped, skipped);
    gst_element_set_bus(source.element(), nullptr);
    gst_object_unref(bus);
}

/// Also where the numbers jump meanwhile, because their upper bytes become known: from 255 to 1024.
TEST_F(Source, TellsBeforeEachFrameHowManyTheQueueDropped)
{
    camera.tell("frame-number", {{"number", std::int64_t{1000}}});
    Pipeline pipeline("zrnsrc queue-policy=newest ! appsink name=a max-buffers=1");
    pipeline.play();
    std::map<GstClockTime, std::uint64_t> told;
    std::optional<std::uint32_t> last;
    std::uint64_t mostDropped = 0;
    for (int i = 0; i < 6; ++i) {
        const SamplePtr sample = pipeline.pull("a");
        ASSERT_TRUE(sample);
        GstBuffer* const buffer = gst_sample_get_buffer(sample.get());
        const auto sent =
            camera.sentFrame(static_cast<std::uint32_t>(GST_BUFFER_OFFSET(buffer)), 8);
        ASSERT_TRUE(sent);
        while (const MessagePtr message = pipeline.message(GST_MESSAGE_QOS, 0ms)) {
            told.insert(lossOf(message.get()));
        }
        if (last) {
            const std::uint64_t dropped = told[GST_BUFFER_PTS(buffer)];
            EXPECT_EQ(dropped, sent->frameNumber - *last - 1);
            mostDropped = std::max(mostDropped, dropped);
        } else {
            const std::uint64_t begun = camera.counter("framesStarted");
            ASSERT_TRUE(camera.waitForCounter("framesStarted", begun + 60));
        }
        last = sent->frameNumber;
    }
    EXPECT_GE(mostDropped, 20U);
}

/// Rows that are no multiple of four bytes: GStreamer takes them for padded unless it is told
/// otherwise.
TEST_F(Source, GivesRowsOfAnyLength)
{
    for (const bool takesAnyRows : {false, true}) {
        SCOPED_TRACE(takesAnyRows);
        const HarnessedSource source;
        if (takesAnyRows) {
            gst_harness_add_propose_allocation_meta(source.a, GST_VIDEO_META_API_TYPE, nullptr);
        }
        source.play();
        const SamplePtr sample = pullSample(source.a);
        ASSERT_TRUE(sample);
        GstBuffer* const buffer = gst_sample_get_buffer(sample.get());
        EXPECT_EQ(gst_buffer_get_video_meta(buffer) != nullptr, takesAnyRows);
        EXPECT_EQ(gst_buffer_get_size(buffer), (takesAnyRows ? 322U : 324U) * 240U);
        isSentImage(camera, GST_BUFFER_OFFSET(buffer), 'A', sample.get());
    }
}

/// A zrncam that streams from the first camera.
class OtherProgram
{
public:
    OtherProgram()
        : m_process(::fork())
    {
        if (m_process == 0) {
            ::execl(ZRNCAM_PATH, ZRNCAM_PATH, "--quiet", "stream", "--seconds", "60", nullptr);
            ::_exit(127);
        }
    }
    ~OtherProgram()
    {
        ::kill(m_process, SIGTERM);
        ::waitpid(m_process, nullptr, 0);
    }
    OtherProgram(const OtherProgram&) = delete;
    OtherProgram& operator=(const OtherProgram&) = delete;

private:
    const pid_t m_process;
};

TEST_F(Source, NamesWhoHoldsTheCamera)
{
    const OtherProgram other;
    const zrn::Bus bus;
    for (const auto end = Clock::now() + patience; Clock::now() < end;) {
        const auto cameras = bus.cameras();
        if (cameras.size() == 1 && cameras.front().use == zrn::Use::Held) {
            break;
        }
        std::this_thread::sleep_for(20ms);
    }
    Pipeline pipeline("zrnsrc ! fakesink");
    EXPECT_EQ(pipeline.setState(GST_STATE_PLAYING), GST_STATE_CHANGE_FAILURE);
    const std::string text = pipeline.errorText();
    EXPECT_NE(text.find("is in use by zrncam (pid "), std::string::npos) << text;
}

TEST_F(Source, SaysThatThereIsNoCamera)
{
    camera.unplug();
    Pipeline pipeline("zrnsrc ! fakesink");
    EXPECT_EQ(pipeline.setState(GST_STATE_READY), GST_STATE_CHANGE_FAILURE);
    const std::string text = pipeline.errorText();
    EXPECT_NE(text.find("check cable and supply"), std::string::npos) << text;
}

} // namespace
