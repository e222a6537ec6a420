// The kernel's own UVC driver as an independent receiver: what it delivers is byte for byte what
// the virtual camera sent. Runs in a virtual machine, with one camera that sends frames on request.

#include "v4l2_device.h"
#include "virtual_camera.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace
{

constexpr int framesPerSize = 3;
constexpr std::chrono::seconds frameLimit{60};

/// Offset of the first byte that differs, or "none".
std::string firstDifference(const std::vector<std::uint8_t>& received,
                            const std::vector<std::uint8_t>& sent)
{
    if (received.size() != sent.size()) {
        return "size " + std::to_string(received.size());
    }
    const auto [difference, _] = std::mismatch(received.begin(), received.end(), sent.begin());
    return difference == received.end() ? "none"
                                        : "byte " + std::to_string(difference - received.begin());
}

TEST(KernelDriver, DeliversWhatTheCameraSent)
{
    V4l2Device device = V4l2Device::firstCamera();
    VirtualCamera camera;
    zrnsim::FrameComposer composer;
    const nlohmann::json description = camera.ask("camera").at("camera");

    const std::vector<V4l2Device::Mode> modes = device.modes();
    ASSERT_EQ(description.at("sizes").size() * description.at("formats").size(), modes.size());
    for (const V4l2Device::Mode& mode : modes) {
        SCOPED_TRACE(mode.description());
        device.start(mode);
        std::vector<std::vector<std::uint8_t>> received;
        for (int i = 0; i < framesPerSize; ++i) {
            camera.emitFrame();
            received.push_back(device.nextFrame(frameLimit));
        }
        device.stop();

        std::vector<SentFrame> sent = camera.sentFrames();
        ASSERT_GE(sent.size(), received.size());
        sent.erase(sent.begin(), sent.end() - framesPerSize);
        for (std::size_t i = 0; i < received.size(); ++i) {
            std::vector<std::uint8_t> expected;
            composer.compose(sent[i].request, expected);
            EXPECT_EQ("none", firstDifference(received[i], expected)) << "frame " << i;
        }
    }
}

} // namespace
