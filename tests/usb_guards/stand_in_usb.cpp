#include "stand_in_usb.h"

#include <condition_variable>
#include <cstdlib>
#include <dlfcn.h>
#include <mutex>

namespace
{

std::mutex mutex;
std::condition_variable changed;
StandInUsb usb;

char objects[64];
std::size_t made = 0;

/// Another address each time.
template <typename Object>
Object* make()
{
    const std::lock_guard locker(mutex);
    return reinterpret_cast<Object*>(&objects[made++ % sizeof objects]);
}

void note(const char* function, void* returnAddress, unsigned timeout = 0)
{
    Dl_info caller{};
    dladdr(returnAddress, &caller);
    const std::lock_guard locker(mutex);
    usb.calls.push_back({function, caller.dli_fname ? caller.dli_fname : "", timeout});
}

#define NOTE(...) note(__func__, __builtin_return_address(0) __VA_OPT__(, ) __VA_ARGS__)

} // namespace

StandInUsb* standInUsb()
{
    return &usb;
}

void withStandInUsb(void (*change)(StandInUsb&, void*), void* data)
{
    const std::lock_guard locker(mutex);
    change(usb, data);
    changed.notify_all();
}

extern "C" {

int libusb_init(libusb_context** context)
{
    NOTE();
    *context = make<libusb_context>();
    return LIBUSB_SUCCESS;
}

void libusb_exit(libusb_context*)
{
    NOTE();
}

int libusb_open(libusb_device*, libusb_device_handle** handle)
{
    NOTE();
    *handle = make<libusb_device_handle>();
    return LIBUSB_SUCCESS;
}

void libusb_close(libusb_device_handle*)
{
    NOTE();
}

int libusb_control_transfer(libusb_device_handle*, std::uint8_t, std::uint8_t, std::uint16_t,
                            std::uint16_t, unsigned char*, std::uint16_t length, unsigned timeout)
{
    NOTE(timeout);
    return length;
}

int libusb_get_config_descriptor(libusb_device*, std::uint8_t, libusb_config_descriptor**)
{
    NOTE();
    return LIBUSB_ERROR_NOT_FOUND;
}

void libusb_free_config_descriptor(libusb_config_descriptor*)
{
    NOTE();
}

libusb_transfer* libusb_alloc_transfer(int)
{
    NOTE();
    return static_cast<libusb_transfer*>(std::calloc(1, sizeof(libusb_transfer)));
}

int libusb_submit_transfer(libusb_transfer*)
{
    NOTE();
    return LIBUSB_SUCCESS;
}

int libusb_cancel_transfer(libusb_transfer*)
{
    NOTE();
    return LIBUSB_SUCCESS;
}

void libusb_free_transfer(libusb_transfer* transfer)
{
    NOTE();
    std::free(transfer);
}

int libusb_handle_events_completed(libusb_context*, int*)
{
    NOTE();
    std::unique_lock locker(mutex);
    usb.isHandlingEvents = true;
    changed.wait(locker, [] { return !usb.holdsEvents; });
    usb.isHandlingEvents = false;
    return LIBUSB_SUCCESS;
}

int libusb_handle_events_timeout_completed(libusb_context*, timeval*, int*)
{
    NOTE();
    return LIBUSB_SUCCESS;
}

int libusb_kernel_driver_active(libusb_device_handle*, int)
{
    NOTE();
    return 0;
}
}
