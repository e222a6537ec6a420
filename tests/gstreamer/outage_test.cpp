// Cameras that leave while a pipeline plays.

#include "pipeline.h"
#include "sent_images.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <thread>

namespace
{

using namespace std::chrono_literals;

/// A number from the environment, or what an ordinary test run has time for.
int numberFrom(const char* variable, int ordinary)
{
    const char* const text = std::getenv(variable);
    return text ? std::atoi(text) : ordinary;
}

class Outage : public testing::Test
{
protected:
    Outage() { camera.restore(); }
    ~Outage() override { camera.restore(); }

    VirtualCamera camera;
};

TEST_F(Outage, GoesOnWhenTheCameraIsBack)
{
    Pipeline pipeline(
        "zrnsrc name=s gain=7  s.src_a ! queue ! appsink name=a max-buffers=1 drop=true "
        "s.src_b ! queue ! appsink name=b max-buffers=1 drop=true");
    pipeline.play();
    const int cycles = numberFrom("ZRN_REPLUG_CYCLES", 3);
    for (int i = 0; i < cycles; ++i) {
        ASSERT_TRUE(pipeline.pull("a"));
        camera.unplug();
        ASSERT_TRUE(pipeline.waitForEvent("lost"));
        camera.restore();
        ASSERT_TRUE(pipeline.waitForEvent("back")) << "cycle " << i;
        while (pipeline.pull("a", 0ms)) { // from before
        }
        const SamplePtr sample = pipeline.pull("a");
        ASSERT_TRUE(sample);
        isSentImage(camera, GST_BUFFER_OFFSET(gst_sample_get_buffer(sample.get())), 'A',
                    sample.get());
        int gain = 0;
        g_object_get(pipeline.element("s"), "gain", &gain, nullptr);
        EXPECT_EQ(gain, 7);
    }
}

TEST_F(Outage, TellsWhoWaitsThatNothingComes)
{
    Pipeline pipeline("zrnsrc ! identity name=watch silent=true ! fakesink");
    int gaps = 0;
    GstPad* const pad = gst_element_get_static_pad(pipeline.element("watch"), "sink");
    gst_pad_add_probe(
        pad, GST_PAD_PROBE_TYPE_EVENT_DOWNSTREAM,
        [](GstPad*, GstPadProbeInfo* info, gpointer count) {
            if (GST_EVENT_TYPE(GST_PAD_PROBE_INFO_EVENT(info)) == GST_EVENT_GAP) {
                __atomic_add_fetch(static_cast<int*>(count), 1, __ATOMIC_RELAXED);
            }
            return GST_PAD_PROBE_OK;
        },
        &gaps, nullptr);
    gst_object_unref(pad);
    pipeline.play();
    ASSERT_TRUE(pipeline.message(GST_MESSAGE_STREAM_START));
    camera.unplug();
    ASSERT_TRUE(pipeline.waitForEvent("lost"));
    for (int i = 0; i < 100 && __atomic_load_n(&gaps, __ATOMIC_RELAXED) < 3; ++i) {
        std::this_thread::sleep_for(50ms);
    }
    pipeline.setState(GST_STATE_NULL);
    EXPECT_GE(gaps, 3);
}

TEST_F(Outage, EndsWithAnErrorWhereNobodyWaits)
{
    Pipeline pipeline("zrnsrc reconnect=false ! fakesink");
    pipeline.play();
    ASSERT_TRUE(pipeline.message(GST_MESSAGE_STREAM_START));
    camera.unplug();
    const std::string text = pipeline.errorText();
    EXPECT_NE(text.find(camera.serial()), std::string::npos) << text;
    EXPECT_NE(text.find("plug it in again"), std::string::npos) << text;
}

/// For some seconds, or for an hour in the long set.
TEST(Soak, AccountsForEveryFrame)
{
    Pipeline pipeline(
        "zrnsrc  name=s s.src_a ! queue ! appsink name=a  s.src_b ! queue ! fakesink");
    pipeline.play();
    const auto end =
        std::chrono::steady_clock::now() + std::chrono::seconds(numberFrom("ZRN_SOAK_SECONDS", 5));
    std::uint64_t received = 0;
    std::uint64_t missing = 0;
    std::uint64_t first = 0;
    GstClockTime firstTime = 0;
    std::uint64_t last = 0;
    bool isEnding = false;
    while (const SamplePtr sample = pipeline.pull("a")) {
        GstBuffer* const buffer = gst_sample_get_buffer(sample.get());
        last = GST_BUFFER_OFFSET(buffer);
        first = received == 0 ? last : first;
        firstTime = received == 0 ? GST_BUFFER_PTS(buffer) : firstTime;
        ++received;
        while (const MessagePtr loss = pipeline.message(GST_MESSAGE_QOS, 0ms)) {
            const auto [time, count] = lossOf(loss.get());
            missing += time > firstTime ? count : 0; // others were lost before the first frame
        }
        if (!isEnding && std::chrono::steady_clock::now() > end) {
            isEnding = gst_element_send_event(pipeline.get(), gst_event_new_eos());
        }
    }
    EXPECT_TRUE(pipeline.message(GST_MESSAGE_EOS));
    EXPECT_EQ(received + missing, last - first + 1);
    std::cout << received << " frames received, " << missing << " missing\n";
}

TEST_F(Outage, MayEndAtAnyMoment)
{
    for (auto moment = 0ms; moment < 2000ms; moment += 250ms) {
        Pipeline pipeline("zrnsrc ! fakesink");
        pipeline.play();
        ASSERT_TRUE(pipeline.message(GST_MESSAGE_STREAM_START));
        camera.unplug();
        std::this_thread::sleep_for(moment);
        const auto begin = std::chrono::steady_clock::now();
        pipeline.setState(GST_STATE_NULL);
        EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
        camera.restore();
    }
}

} // namespace
