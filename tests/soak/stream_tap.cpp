#include "stream_tap.h"

#include <libuvc/libuvc.h>

#include <dlfcn.h>
#include <map>
#include <mutex>

namespace soak
{
namespace
{

/// One camera's stream, between libuvc and the driver.
struct Tap {
    FrameObserver observer;
    uvc_frame_callback_t* driver = nullptr;
    void* camera = nullptr;
};

std::mutex tapMutex;
std::map<const void*, Tap> taps;

Tap* findTap(const void* camera)
{
    const std::lock_guard locker(tapMutex);
    const auto found = taps.find(camera);
    return found == taps.end() ? nullptr : &found->second;
}

void onFrame(uvc_frame* frame, void* pointer)
{
    const Tap& tap = *static_cast<Tap*>(pointer);
    tap.observer({static_cast<const std::uint8_t*>(frame->data), frame->data_bytes});
    tap.driver(frame, tap.camera);
}

auto* libraryStart()
{
    void* const library = dlopen("libuvc.so.0", RTLD_LAZY | RTLD_NOLOAD);
    return reinterpret_cast<decltype(&uvc_start_streaming)>(dlsym(library, "uvc_start_streaming"));
}

} // namespace

void watchStream(const void* camera, FrameObserver observer)
{
    const std::lock_guard locker(tapMutex);
    taps[camera].observer = std::move(observer);
}

void unwatchStream(const void* camera)
{
    const std::lock_guard locker(tapMutex);
    taps.erase(camera);
}

} // namespace soak

extern "C" __attribute__((visibility("default"))) uvc_error_t
uvc_start_streaming(uvc_device_handle_t* handle, uvc_stream_ctrl_t* control,
                    uvc_frame_callback_t* callback, void* pointer, std::uint8_t flags)
{
    static auto* const start = soak::libraryStart();
    soak::Tap* const tap = soak::findTap(pointer);
    if (!tap) {
        return start(handle, control, callback, pointer, flags);
    }
    tap->driver = callback;
    tap->camera = pointer;
    return start(handle, control, soak::onFrame, tap, flags);
}
