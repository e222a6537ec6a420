#include "teller.h"
#include "usb_user.h"
#include "virtual_camera.h"

#include <libuvc/libuvc.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <vector>

namespace
{

using company::Teller;

constexpr int vendorId = 0x1111;         // the product id is the ordinal
constexpr std::size_t camerasBefore = 2; // the driver's
constexpr int width = 320;
constexpr int height = 240;

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

std::string gain(uvc_device_handle_t* handle)
{
    std::uint16_t value = 0;
    const int code = uvc_get_gain(handle, &value, UVC_GET_CUR);
    return std::to_string(code) + ", " + std::to_string(value);
}

/// A capture device in a context of its own.
class Device
{
public:
    Device(const Teller& tell, unsigned ordinal)
    {
        uvc_init(&m_context, nullptr);
        tell("find", [&] {
            return std::to_string(uvc_find_device(m_context, &m_device, vendorId,
                                                  static_cast<int>(ordinal), nullptr));
        });
        if (m_device) {
            tell("open", [&] { return std::to_string(uvc_open(m_device, &m_handle)); });
        }
    }
    ~Device()
    {
        if (m_device) {
            uvc_unref_device(m_device);
        }
        if (m_context) {
            uvc_exit(m_context);
        }
    }
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    [[nodiscard]] uvc_device_handle_t* handle() const { return m_handle; }

    void close(const Teller& tell)
    {
        tell("close", [&] {
            uvc_close(m_handle);
            m_handle = nullptr;
            return std::string();
        });
    }
    /// For a device that has left: closing it would end the process.
    void abandon()
    {
        m_device = nullptr;
        m_context = nullptr;
    }

private:
    uvc_context_t* m_context = nullptr;
    uvc_device_t* m_device = nullptr;
    uvc_device_handle_t* m_handle = nullptr;
};

uvc_stream_ctrl_t negotiate(const Teller& tell, uvc_device_handle_t* handle)
{
    uvc_stream_ctrl_t parameters{};
    tell("negotiate", [&] {
        const int code = uvc_get_stream_ctrl_format_size(handle, &parameters, UVC_FRAME_FORMAT_ANY,
                                                         width, height, 0);
        return std::to_string(code) + ", " + std::to_string(parameters.dwMaxVideoFrameSize) + ", " +
               std::to_string(parameters.dwMaxPayloadTransferSize);
    });
    return parameters;
}

/// Starts a stream and looks at its first frames.
void stream(const Teller& tell, uvc_device_handle_t* handle, uvc_stream_ctrl_t& parameters,
            Frames& frames, VirtualCamera& camera)
{
    tell("start", [&] {
        return std::to_string(
            uvc_start_streaming(handle, &parameters, Frames::onFrame, &frames, 0));
    });
    camera.tell("frame-number", {{"number", 100}});
    for (int i = 0; i < 4; ++i) {
        tell("frame", [&] {
            camera.tell("emit");
            return frames.next();
        });
    }
}

void stop(const Teller& tell, uvc_device_handle_t* handle)
{
    tell("stop", [&] {
        uvc_stop_streaming(handle);
        return std::string();
    });
}

void captureDevice(const Teller& tell, unsigned ordinal)
{
    VirtualCamera camera(camerasBefore + ordinal - 1);
    Device device(tell, ordinal);
    uvc_device_handle_t* const handle = device.handle();
    if (!handle) {
        return;
    }
    uvc_stream_ctrl_t parameters = negotiate(tell, handle);
    Frames frames;
    for (int round = 0; round < 2; ++round) {
        stream(tell, handle, parameters, frames, camera);
        stop(tell, handle);
    }
    tell("gain", [&] { return gain(handle); });
    camera.tell("control-fault", {{"action", "delay"}, {"target", "gain"}, {"milliseconds", 2500}});
    tell("gain after 2.5 s", [&] { return gain(handle); });
    device.close(tell);
}

/// The device leaves the bus while it streams, and comes back.
void captureUnplugging(const Teller& tell, unsigned ordinal)
{
    static Frames framesBefore; // the stream is never stopped
    VirtualCamera camera(camerasBefore + ordinal - 1);
    Device device(tell, ordinal);
    if (!device.handle()) {
        return;
    }
    uvc_stream_ctrl_t parameters = negotiate(tell, device.handle());
    stream(tell, device.handle(), parameters, framesBefore, camera);
    camera.tell("unplug");
    tell("gain afterwards", [&] { return gain(device.handle()); });
    tell("negotiate afterwards", [&] {
        return std::to_string(uvc_get_stream_ctrl_format_size(
            device.handle(), &parameters, UVC_FRAME_FORMAT_ANY, width, height, 0));
    });
    {
        const Device gone(tell, ordinal);
    }
    device.abandon();

    camera.tell("plug");
    const Teller returned = tell.withoutTimes();
    Device again(returned, ordinal);
    if (!again.handle()) {
        return;
    }
    Frames frames;
    parameters = negotiate(returned, again.handle());
    stream(returned, again.handle(), parameters, frames, camera);
    stop(returned, again.handle());
    again.close(returned);
}

} // namespace

extern "C" __attribute__((visibility("default"))) bool useUvc(const char* name, unsigned ordinal,
                                                              TellStep tellStep, void* context)
{
    const Teller tell(tellStep, context);
    if (std::strcmp(name, uvcCases[0]) == 0) {
        captureDevice(tell, ordinal);
        return true;
    }
    if (std::strcmp(name, uvcCases[1]) == 0) {
        captureUnplugging(tell, ordinal);
        return true;
    }
    return false;
}
