// What plain libuvc does when its camera is unplugged: uvc_unplug idle|paused|streaming|stopping.
// Runs under zrnsim or in a virtual machine with its cameras. Exits with 0 when the libraries lived
// through it.
#include "camera_ids.h"
#include "virtual_camera.h"

#include <libuvc/libuvc.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

namespace
{

constexpr std::chrono::milliseconds settling(300);

bool start(uvc_device_handle_t* handle)
{
    const uvc_frame_desc_t* const size = uvc_get_format_descs(handle)->frame_descs;
    uvc_stream_ctrl_t control{};
    return uvc_get_stream_ctrl_format_size(handle, &control, UVC_FRAME_FORMAT_UNCOMPRESSED,
                                           size->wWidth, size->wHeight, 0) == UVC_SUCCESS &&
           uvc_start_streaming(
               handle, &control, [](uvc_frame*, void*) {}, nullptr, 0) == UVC_SUCCESS;
}

} // namespace

int main(int argc, char** argv)
{
    const std::string moment = argc == 2 ? argv[1] : "";
    if (moment != "idle" && moment != "paused" && moment != "streaming" && moment != "stopping") {
        std::fprintf(stderr, "usage: uvc_unplug idle|paused|streaming|stopping\n");
        return 2;
    }
    uvc_context_t* context = nullptr;
    uvc_device_t* device = nullptr;
    uvc_device_handle_t* handle = nullptr;
    if (uvc_init(&context, nullptr) != UVC_SUCCESS ||
        uvc_find_device(context, &device, zrn::cameraVendorId, zrn::cameraProductId, nullptr) !=
            UVC_SUCCESS ||
        uvc_open(device, &handle) != UVC_SUCCESS || (moment != "idle" && !start(handle))) {
        std::fprintf(stderr, "uvc_unplug: no camera could be opened and started\n");
        return 3;
    }
    std::this_thread::sleep_for(settling);
    if (moment == "paused") {
        VirtualCamera().tell("freeze");
        std::this_thread::sleep_for(settling);
    }
    std::thread cable([] { VirtualCamera().tell("unplug"); });
    if (moment != "stopping") {
        cable.join();
        std::this_thread::sleep_for(settling);
    }
    if (moment != "idle") {
        uvc_stop_streaming(handle);
    }
    if (cable.joinable()) {
        cable.join();
    }
    uvc_close(handle);
    uvc_unref_device(device);
    uvc_exit(context);
    return EXIT_SUCCESS;
}
