#include "stand_in_uvc.h"

#include <memory>

struct uvc_context {
    libusb_context* usb = nullptr;
};
struct uvc_device_handle {
    libusb_device_handle* usb = nullptr;
};

#ifdef STAND_IN_WITHOUT_USB
#define CALL_USB(call) static_cast<void>(0)
#else
#define CALL_USB(call) call
#endif

uvc_error_t uvc_init(uvc_context_t** context, libusb_context*)
{
    *context = new uvc_context;
    CALL_USB(libusb_init(&(*context)->usb));
    return UVC_SUCCESS;
}

void uvc_exit(uvc_context_t* context)
{
    CALL_USB(libusb_exit(context->usb));
    delete context;
}

uvc_error_t uvc_get_device_list(uvc_context_t*, uvc_device_t***)
{
    libusb_config_descriptor* configuration = nullptr;
    CALL_USB(libusb_get_config_descriptor(nullptr, 0, &configuration));
    CALL_USB(libusb_free_config_descriptor(configuration));
    return configuration ? UVC_SUCCESS : UVC_ERROR_NOT_FOUND;
}

uvc_error_t uvc_get_device_descriptor(uvc_device_t*, uvc_device_descriptor_t**)
{
    return UVC_ERROR_NOT_FOUND;
}

uvc_error_t uvc_open(uvc_device_t*, uvc_device_handle_t** handle)
{
    *handle = new uvc_device_handle;
    CALL_USB(libusb_open(nullptr, &(*handle)->usb));
    return UVC_SUCCESS;
}

void uvc_close(uvc_device_handle_t* handle)
{
    CALL_USB(libusb_close(handle->usb));
    delete handle;
}

libusb_device_handle* uvc_get_libusb_handle(uvc_device_handle_t* handle)
{
    return handle->usb;
}

// The sums keep the calls from being jumps: their return addresses tell who called.

int standInControl([[maybe_unused]] uvc_device_handle_t* handle)
{
    int result = 0;
    CALL_USB(result = 1 + libusb_control_transfer(handle->usb, 0xa1, 0x81, 0x0400, 0x0200, nullptr,
                                                  2, 0));
    return result - 1;
}

int standInTransfer([[maybe_unused]] uvc_device_handle_t* handle, [[maybe_unused]] bool isSubmitted)
{
    int result = 0;
#ifndef STAND_IN_WITHOUT_USB
    libusb_transfer* const transfer = libusb_alloc_transfer(0);
    transfer->dev_handle = handle->usb;
    transfer->type = LIBUSB_TRANSFER_TYPE_BULK;
    if (isSubmitted) {
        libusb_submit_transfer(transfer);
    }
    result = libusb_cancel_transfer(transfer);
    libusb_free_transfer(transfer);
#endif
    return result;
}

int standInEvents([[maybe_unused]] uvc_context_t* context)
{
    int result = 0;
    CALL_USB(result = 1 + libusb_handle_events_completed(context->usb, nullptr));
    return result - 1;
}
