#include "control/control_client.h"
#include "teller.h"
#include "usb_user.h"

#include <libuvc/libuvc.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

namespace
{

using company::Teller;

constexpr int vendorId = 0x1111; // the product id is the ordinal
constexpr std::size_t camerasBefore = 2;
constexpr int width = 320;
constexpr int height = 240;

/// What the capture device does, told from outside.
class Script
{
public:
    explicit Script(unsigned ordinal)
        : m_camera(camerasBefore + ordinal - 1)
    {
    }

    void tell(const char* command, nlohmann::json fields = nlohmann::json::object())
    {
        fields["command"] = command;
        fields["camera"] = m_camera;
        m_client.call(fields);
    }

private:
    std::size_t m_camera;
    zrnsim::ControlClient m_client = zrnsim::ControlClient::fromEnvironment();
};

/// The frames that libuvc has handed over.
class Frames
{
public:
    static void onFrame(uvc_frame_t* frame, void* self) { static_cast<Frames*>(self)->add(*frame); }

    std::string next()
    {
        std::unique_lock lock(m_mutex);
        if (!m_came.wait_for(lock, std::chrono::seconds(20), [&] { return !m_frames.empty(); })) {
            return "no frame";
        }
        const std::string frame = m_frames.front();
        m_frames.erase(m_frames.begin());
        return frame;
    }

private:
    void add(const uvc_frame_t& frame)
    {
        const std::lock_guard lock(m_mutex);
        const auto* const data = static_cast<const std::uint8_t*>(frame.data);
        m_frames.push_back(std::to_string(frame.width) + "x" + std::to_string(frame.height) + ", " +
                           company::describe({data, frame.data_bytes}));
        m_came.notify_one();
    }

    std::mutex m_mutex;
    std::condition_variable m_came;
    std::vector<std::string> m_frames;
};

void drive(const Teller& tell, uvc_device_handle_t* handle, Script& script)
{
    uvc_stream_ctrl_t parameters{};
    tell("negotiate", [&] {
        const int code = uvc_get_stream_ctrl_format_size(handle, &parameters, UVC_FRAME_FORMAT_ANY,
                                                         width, height, 0);
        return std::to_string(code) + ", " + std::to_string(parameters.dwMaxVideoFrameSize) + ", " +
               std::to_string(parameters.dwMaxPayloadTransferSize);
    });
    Frames frames;
    for (int round = 0; round < 2; ++round) {
        tell("start", [&] {
            return std::to_string(
                uvc_start_streaming(handle, &parameters, Frames::onFrame, &frames, 0));
        });
        script.tell("frame-number", {{"number", 100}});
        for (int i = 0; i < 4; ++i) {
            tell("frame", [&] {
                script.tell("emit");
                return frames.next();
            });
        }
        tell("stop", [&] {
            uvc_stop_streaming(handle);
            return std::string();
        });
    }
    const auto gain = [&] {
        std::uint16_t value = 0;
        const int code = uvc_get_gain(handle, &value, UVC_GET_CUR);
        return std::to_string(code) + ", " + std::to_string(value);
    };
    tell("gain", gain);
    script.tell("control-fault", {{"action", "delay"}, {"target", "gain"}, {"milliseconds", 2500}});
    tell("gain after 2.5 s", gain);
}

} // namespace

extern "C" __attribute__((visibility("default"))) void useUvc(unsigned ordinal, TellStep tellStep,
                                                              void* context)
{
    const Teller tell(tellStep, context);
    Script script(ordinal);
    uvc_context_t* uvc = nullptr;
    uvc_init(&uvc, nullptr);
    uvc_device_t* device = nullptr;
    uvc_device_handle_t* handle = nullptr;
    tell("find", [&] {
        return std::to_string(
            uvc_find_device(uvc, &device, vendorId, static_cast<int>(ordinal), nullptr));
    });
    if (device) {
        tell("open", [&] { return std::to_string(uvc_open(device, &handle)); });
        if (handle) {
            drive(tell, handle, script);
            tell("close", [&] {
                uvc_close(handle);
                return std::string();
            });
        }
        uvc_unref_device(device);
    }
    uvc_exit(uvc);
}
