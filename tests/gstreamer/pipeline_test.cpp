// What leaves the element arrives, byte for byte, whatever stands behind it.

#include "pipeline.h"
#include "sent_images.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <vector>

namespace
{

constexpr std::size_t width = 320;
constexpr std::size_t height = 240;
using Bytes = std::vector<std::uint8_t>;

Bytes bytesOf(GstBuffer* buffer)
{
    GstMapInfo map;
    gst_buffer_map(buffer, &map, GST_MAP_READ);
    Bytes bytes(map.data, map.data + map.size);
    gst_buffer_unmap(buffer, &map);
    return bytes;
}

std::uint64_t numberOf(GstSample* sample)
{
    return GST_BUFFER_OFFSET(gst_sample_get_buffer(sample));
}

/// Copies of what has passed a pad, by frame number.
class Tap
{
public:
    Tap(const Pipeline& pipeline, const char* element, const char* padName)
    {
        GstPad* const pad = gst_element_get_static_pad(pipeline.element(element), padName);
        gst_pad_add_probe(
            pad, GST_PAD_PROBE_TYPE_BUFFER,
            [](GstPad*, GstPadProbeInfo* info, gpointer self) {
                GstBuffer* const buffer = GST_PAD_PROBE_INFO_BUFFER(info);
                auto& tap = *static_cast<Tap*>(self);
                const std::lock_guard lock(tap.m_mutex);
                tap.m_images[GST_BUFFER_OFFSET(buffer)] = bytesOf(buffer);
                return GST_PAD_PROBE_OK;
            },
            this, nullptr);
        gst_object_unref(pad);
    }
    Tap(const Tap&) = delete;
    Tap& operator=(const Tap&) = delete;

    bool has(const Bytes& image) const
    {
        const std::lock_guard lock(m_mutex);
        return std::ranges::any_of(m_images, [&](const auto& one) { return one.second == image; });
    }
    std::map<std::uint64_t, Bytes> images() const
    {
        const std::lock_guard lock(m_mutex);
        return m_images;
    }

private:
    mutable std::mutex m_mutex; // guards what follows
    std::map<std::uint64_t, Bytes> m_images;
};

class Pipelines : public testing::Test
{
protected:
    Pipelines()
    {
        std::string pattern = std::filesystem::temp_directory_path() / "zrnsrc-XXXXXX";
        folder = mkdtemp(pattern.data());
        camera.restore();
    }
    ~Pipelines() override { std::filesystem::remove_all(folder); }

    /// Writes through @p writer and reads back through @p reader.
    void expectSameBack(const std::string& writer, const std::string& reader)
    {
        const std::string file = folder / "recording.mkv";
        std::vector<std::uint64_t> numbers;
        {
            Pipeline recording("zrnsrc num-buffers=30 ! tee name=t  t. ! queue ! appsink name=sent "
                               "t. ! queue ! " +
                               writer + " ! matroskamux ! filesink location=" + file);
            recording.play();
            while (const SamplePtr sample = recording.pull("sent")) {
                numbers.push_back(numberOf(sample.get()));
            }
            ASSERT_TRUE(recording.message(GST_MESSAGE_EOS));
        }
        ASSERT_EQ(numbers.size(), 30U);
        Pipeline playing("filesrc location=" + file + " ! matroskademux ! " + reader +
                         " ! appsink name=sink sync=false");
        playing.play();
        for (const std::uint64_t number : numbers) {
            const SamplePtr sample = playing.pull("sink");
            ASSERT_TRUE(sample);
            EXPECT_TRUE(isSentImage(camera, number, 'A', sample.get()));
        }
        EXPECT_FALSE(playing.pull("sink"));
    }

    /// Runs a program that writes images into the file that is its last argument, and looks for
    /// each among those that the camera has sent.
    void expectSentImagesFrom(const std::string& program)
    {
        const std::string file = folder / "images";
        ASSERT_EQ(std::system((program + " " + file).c_str()), 0);
        std::ifstream stream(file, std::ios::binary);
        Bytes image(width * height);
        int images = 0;
        const std::vector<SentFrame> sent = camera.sentFrames();
        auto next = sent.begin();
        while (stream.read(reinterpret_cast<char*>(image.data()),
                           static_cast<std::streamsize>(image.size()))) {
            next = std::find_if(next, sent.end(), [&](const SentFrame& frame) {
                return zrnsim::expectedImages(frame.request).a == image;
            });
            ASSERT_NE(next, sent.end()) << "image " << images << " was never sent";
            ++images;
        }
        EXPECT_EQ(images, 10);
    }

    VirtualCamera camera;
    std::filesystem::path folder;
};

TEST_F(Pipelines, RawMatroskaGivesTheImagesBack)
{
    expectSameBack("identity", "identity");
}

TEST_F(Pipelines, Ffv1GivesTheImagesBack)
{
    expectSameBack("avenc_ffv1", "avdec_ffv1");
}

TEST_F(Pipelines, ASlowBranchTakesNothingFromAFastOne)
{
    Pipeline pipeline("zrnsrc name=s num-buffers=120 ! tee name=t  t. ! queue ! appsink name=fast "
                      "t. ! queue leaky=downstream max-size-buffers=1 ! "
                      "identity sleep-time=200000 ! fakesink sync=false");
    pipeline.play();
    std::uint64_t frames = 0;
    while (pipeline.pull("fast")) {
        ++frames;
    }
    EXPECT_EQ(frames, 120U);
    GstStructure* statistics = nullptr;
    g_object_get(pipeline.element("s"), "statistics", &statistics, nullptr);
    for (const char* place : {"lost-queue", "lost-ring"}) {
        std::uint64_t lost = 1;
        EXPECT_TRUE(gst_structure_get_uint64(statistics, place, &lost));
        EXPECT_EQ(lost, 0U) << place;
    }
    gst_structure_free(statistics);
}

TEST_F(Pipelines, PythonsAppsinkGetsTheImages)
{
    expectSentImagesFrom("/usr/bin/python3 " SCRIPTS "/appsink.py");
}

TEST_F(Pipelines, OpenCvCapturesTheImages)
{
    expectSentImagesFrom("/usr/bin/python3 " SCRIPTS "/capture.py");
}

TEST(TwoCameras, StandSideBySide)
{
    VirtualCamera left(0);
    VirtualCamera right(1);
    Pipeline pipeline("compositor name=both sink_1::xpos=320 ! video/x-raw,format=GRAY8 ! "
                      "appsink name=sink "
                      "zrnsrc serial=" +
                      left.serial() + " ! queue name=l ! both.sink_0 zrnsrc serial=" +
                      right.serial() + " ! queue name=r ! both.sink_1");
    const Tap leftTap(pipeline, "l", "sink");
    const Tap rightTap(pipeline, "r", "sink");
    pipeline.play();
    int complete = 0;
    // A live mixer does not wait for cameras, which take their time to start on a busy machine.
    for (const auto end = std::chrono::steady_clock::now() + patience;
         complete < 20 && std::chrono::steady_clock::now() < end;) {
        const SamplePtr sample = pipeline.pull("sink");
        ASSERT_TRUE(sample);
        const Bytes both = bytesOf(gst_sample_get_buffer(sample.get()));
        if (both.size() != 2 * width * height) {
            continue; // no camera has told its size yet
        }
        Bytes leftHalf;
        Bytes rightHalf;
        for (std::size_t row = 0; row < height; ++row) {
            const auto begin = both.begin() + static_cast<std::ptrdiff_t>(row * 2 * width);
            leftHalf.insert(leftHalf.end(), begin, begin + width);
            rightHalf.insert(rightHalf.end(), begin + width, begin + 2 * width);
        }
        complete += leftTap.has(leftHalf) && rightTap.has(rightHalf);
    }
    EXPECT_EQ(complete, 20);
    pipeline.setState(GST_STATE_NULL);
    for (const auto& [tap, camera] : {std::pair(&leftTap, &left), std::pair(&rightTap, &right)}) {
        int checked = 0;
        for (const auto& [number, image] : tap->images()) {
            const auto request = camera->sentFrame(static_cast<std::uint32_t>(number), 32);
            if (request) {
                EXPECT_EQ(zrnsim::expectedImages(*request).a, image);
                ++checked;
            }
        }
        EXPECT_GT(checked, 10);
    }
}

} // namespace
