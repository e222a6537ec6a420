// Real libuvc on the virtual cameras: runs under zrnsim, one process for each group of cameras.
#include "camera_ids.h"
#include "control/control_client.h"
#include "control/json_views.h"
#include "pictures/frame_composer.h"

#include <gtest/gtest.h>
#include <libuvc/libuvc.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace zrnsim
{
namespace
{

using namespace std::chrono_literals;
using nlohmann::json;

/// Frames as they came, in order.
struct Inbox {
    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<Bytes> frames;

    static void receive(uvc_frame* frame, void* user)
    {
        auto& inbox = *static_cast<Inbox*>(user);
        const auto* const data = static_cast<const std::uint8_t*>(frame->data);
        const std::lock_guard lock(inbox.mutex);
        inbox.frames.emplace_back(data, data + frame->data_bytes);
        inbox.arrived.notify_all();
    }

    bool await(std::size_t count)
    {
        std::unique_lock lock(mutex);
        return arrived.wait_for(lock, 60s, [&] { return frames.size() >= count; });
    }
};

/// One open camera with a context of its own.
class OpenCamera
{
public:
    explicit OpenCamera(const std::string& serial)
    {
        EXPECT_EQ(uvc_init(&m_context, nullptr), UVC_SUCCESS);
        EXPECT_EQ(uvc_find_device(m_context, &m_device, zrn::cameraVendorId, zrn::cameraProductId,
                                  serial.c_str()),
                  UVC_SUCCESS);
        EXPECT_EQ(uvc_open(m_device, &handle), UVC_SUCCESS);
    }
    ~OpenCamera()
    {
        uvc_close(handle);
        uvc_unref_device(m_device);
        uvc_exit(m_context);
    }
    OpenCamera(const OpenCamera&) = delete;
    OpenCamera& operator=(const OpenCamera&) = delete;

    uvc_error_t start(Inbox& inbox, int width, int height)
    {
        uvc_stream_ctrl_t control{};
        const uvc_error_t error = uvc_get_stream_ctrl_format_size(
            handle, &control, UVC_FRAME_FORMAT_UNCOMPRESSED, width, height, 0);
        return error == UVC_SUCCESS
                   ? uvc_start_streaming(handle, &control, Inbox::receive, &inbox, 0)
                   : error;
    }

    uvc_device_handle_t* handle = nullptr;

private:
    uvc_context_t* m_context = nullptr;
    uvc_device_t* m_device = nullptr;
};

class UvcSmoke : public testing::Test
{
protected:
    json call(json request)
    {
        json answer = control.call(request);
        EXPECT_TRUE(answer.at("ok")) << request << answer;
        return answer;
    }

    json cameras() { return call({{"command", "cameras"}}).at("cameras"); }

    ControlClient control = ControlClient::fromEnvironment();
};

/// The frames that the camera says it sent completely, by number, as its composer makes them.
std::map<std::uint32_t, Bytes> renderAgain(const json& frames)
{
    std::map<std::uint32_t, Bytes> result;
    FrameComposer composer;
    for (const json& frame : frames) {
        const FrameRequest request = parseFrameRequest(frame);
        composer.compose(request, result[request.frameNumber]);
    }
    return result;
}

TEST_F(UvcSmoke, SerialAndSensorTypeArriveOnTheirCarriers)
{
    for (const json& described : cameras()) {
        const OpenCamera camera(described.at("serial"));
        ASSERT_NE(camera.handle, nullptr);
        std::uint64_t serial = 0;
        int shift = 0;
        for (const auto code : {UVC_GET_CUR, UVC_GET_MIN, UVC_GET_MAX, UVC_GET_DEF}) {
            std::uint16_t word = 0;
            EXPECT_EQ(uvc_get_backlight_compensation(camera.handle, &word, code), UVC_SUCCESS);
            serial |= static_cast<std::uint64_t>(word) << shift;
            shift += 16;
        }
        EXPECT_EQ(std::to_string(serial), described.at("serial").get<std::string>());
        std::uint16_t contrast = 0;
        EXPECT_EQ(uvc_get_contrast(camera.handle, &contrast, UVC_GET_CUR), UVC_SUCCESS);
        EXPECT_EQ(contrast, described.at("sensorType"));
    }
}

TEST_F(UvcSmoke, ControlsAreWrittenReadBackAndReset)
{
    const OpenCamera camera(cameras().at(0).at("serial"));
    EXPECT_EQ(uvc_set_ae_mode(camera.handle, 1), UVC_SUCCESS);
    EXPECT_EQ(uvc_set_brightness(camera.handle, 321), UVC_SUCCESS);
    EXPECT_EQ(uvc_set_gain(camera.handle, 17), UVC_SUCCESS);
    std::int16_t exposure = 0;
    std::uint16_t gain = 0;
    EXPECT_EQ(uvc_get_brightness(camera.handle, &exposure, UVC_GET_CUR), UVC_SUCCESS);
    EXPECT_EQ(uvc_get_gain(camera.handle, &gain, UVC_GET_CUR), UVC_SUCCESS);
    EXPECT_EQ(exposure, 321);
    EXPECT_EQ(gain, 17);
    EXPECT_EQ(uvc_set_gain(camera.handle, 256), UVC_ERROR_PIPE);

    std::uint16_t contrast = 0;
    uvc_get_contrast(camera.handle, &contrast, UVC_GET_CUR);
    EXPECT_EQ(uvc_set_contrast(camera.handle, contrast), UVC_SUCCESS);
    uvc_get_gain(camera.handle, &gain, UVC_GET_CUR);
    EXPECT_EQ(gain, 128);
}

TEST_F(UvcSmoke, EveryFrameOfEverySizeArrivesByteForByte)
{
    constexpr std::size_t wanted = 5;
    for (const json& described : cameras()) {
        const std::size_t index = described.at("camera");
        OpenCamera camera(described.at("serial"));
        for (const json& size : described.at("sizes")) {
            const json before = call({{"command", "counters"}, {"camera", index}});
            const auto firstFrame = before.at("counters").at("framesStarted");
            Inbox inbox;
            ASSERT_EQ(camera.start(inbox, size.at("width"), size.at("height")), UVC_SUCCESS);
            EXPECT_TRUE(inbox.await(wanted)) << described;
            uvc_stop_streaming(camera.handle);

            const auto sent =
                renderAgain(call({{"command", "frames"}, {"camera", index}, {"since", firstFrame}})
                                .at("frames"));
            ASSERT_GE(inbox.frames.size(), wanted);
            for (const Bytes& frame : inbox.frames) {
                ASSERT_GT(frame.size(), 6U);
                const auto number = readLittleEndian(frame, 2, 4);
                ASSERT_TRUE(sent.contains(number)) << number;
                EXPECT_TRUE(frame == sent.at(number)) << "frame " << number << described;
            }
        }
    }
}

TEST_F(UvcSmoke, AStreamStartsAndStopsManyTimes)
{
    OpenCamera camera(cameras().at(0).at("serial"));
    for (int i = 0; i < 20; ++i) {
        Inbox inbox;
        ASSERT_EQ(camera.start(inbox, 640, 480), UVC_SUCCESS);
        EXPECT_TRUE(inbox.await(1));
        uvc_stop_streaming(camera.handle);
    }
}

TEST_F(UvcSmoke, ExposureShowsInThePicture)
{
    const json described = cameras().at(0);
    OpenCamera camera(described.at("serial"));
    const auto brightness = [&](int exposure) {
        EXPECT_EQ(uvc_set_brightness(camera.handle, static_cast<std::int16_t>(exposure)),
                  UVC_SUCCESS);
        Inbox inbox;
        EXPECT_EQ(camera.start(inbox, 640, 480), UVC_SUCCESS);
        EXPECT_TRUE(inbox.await(1));
        uvc_stop_streaming(camera.handle);
        std::uint64_t sum = 0;
        for (const std::uint8_t value : inbox.frames.at(0)) {
            sum += value;
        }
        return sum;
    };
    const std::uint64_t dark = brightness(10);
    EXPECT_GT(brightness(2500), 2 * dark);
}

TEST_F(UvcSmoke, UnansweredAndFailingRequestsReachTheHost)
{
    OpenCamera camera(cameras().at(0).at("serial"));
    std::uint16_t gain = 0;
    for (const auto& [action, expected] :
         std::map<std::string, uvc_error_t>{{"stall", UVC_ERROR_PIPE}, {"fail", UVC_ERROR_IO}}) {
        call({{"command", "control-fault"}, {"action", action}, {"target", "gain"}});
        EXPECT_EQ(uvc_get_gain(camera.handle, &gain, UVC_GET_CUR), expected) << action;
    }
    call({{"command", "control-fault"},
          {"action", "delay"},
          {"milliseconds", 80},
          {"target", "gain"}});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(uvc_get_gain(camera.handle, &gain, UVC_GET_CUR), UVC_SUCCESS);
    EXPECT_GE(std::chrono::steady_clock::now() - start, 79ms);
}

TEST_F(UvcSmoke, DamagedFramesArriveDamaged)
{
    const json described = cameras().at(0);
    const auto bytes = std::size_t{640} * 480 * 2;
    OpenCamera camera(described.at("serial"));
    call({{"command", "frame-fault"}, {"count", 2}, {"sizeDelta", -1000}});
    Inbox inbox;
    ASSERT_EQ(camera.start(inbox, 640, 480), UVC_SUCCESS);
    EXPECT_TRUE(inbox.await(4));
    uvc_stop_streaming(camera.handle);
    const auto damaged = std::count_if(inbox.frames.begin(), inbox.frames.end(),
                                       [&](const Bytes& frame) { return frame.size() != bytes; });
    EXPECT_EQ(damaged, 2);
}

TEST_F(UvcSmoke, ADepartedCameraIsGoneAndComesBackUnderAnotherSerial)
{
    const auto isThere = [](const std::string& serial) {
        uvc_context_t* context = nullptr;
        uvc_device_t* device = nullptr;
        uvc_init(&context, nullptr);
        const bool found = uvc_find_device(context, &device, zrn::cameraVendorId,
                                           zrn::cameraProductId, serial.c_str()) == UVC_SUCCESS;
        if (found) {
            uvc_unref_device(device);
        }
        uvc_exit(context);
        return found;
    };
    // A kernel takes some time to notice, and to enumerate.
    const auto eventually = [](const auto& condition) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!condition() && std::chrono::steady_clock::now() < end) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return condition();
    };
    const std::string serial = cameras().at(0).at("serial");
    EXPECT_TRUE(isThere(serial));
    call({{"command", "unplug"}});
    EXPECT_TRUE(eventually([&] { return !isThere(serial); }));
    call({{"command", "plug"}, {"serial", "4711"}});
    EXPECT_TRUE(eventually([&] { return isThere("4711"); }));
    call({{"command", "unplug"}});
    call({{"command", "plug"}, {"serial", serial}});
    EXPECT_TRUE(eventually([&] { return isThere(serial); }));
}

} // namespace
} // namespace zrnsim
