// The driver's calls of libuvc that create something. The linker leads them here (--wrap), so that
// the guards know on whose behalf libuvc calls libusb meanwhile.

#include "installation.h"
#include "owned_objects.h"

#include <libuvc/libuvc.h>

using usbguards::Installation;
using DriverCall = usbguards::OwnedObjects::DriverCall;

// libuvc's own functions, and what stands in their places: the names that the linker gives them.
extern "C" {
uvc_error_t libuvcInit(uvc_context_t** context, libusb_context* usb) __asm__("__real_uvc_init");
uvc_error_t libuvcDeviceList(uvc_context_t* context,
                             uvc_device_t*** list) __asm__("__real_uvc_get_device_list");
uvc_error_t
libuvcDescriptor(uvc_device_t* device,
                 uvc_device_descriptor_t** result) __asm__("__real_uvc_get_device_descriptor");
uvc_error_t libuvcOpen(uvc_device_t* device,
                       uvc_device_handle_t** handle) __asm__("__real_uvc_open");

uvc_error_t driverInit(uvc_context_t** context, libusb_context* usb) __asm__("__wrap_uvc_init");
uvc_error_t driverDeviceList(uvc_context_t* context,
                             uvc_device_t*** list) __asm__("__wrap_uvc_get_device_list");
uvc_error_t
driverDescriptor(uvc_device_t* device,
                 uvc_device_descriptor_t** result) __asm__("__wrap_uvc_get_device_descriptor");
uvc_error_t driverOpen(uvc_device_t* device,
                       uvc_device_handle_t** handle) __asm__("__wrap_uvc_open");
}

uvc_error_t driverInit(uvc_context_t** context, libusb_context* usb)
{
    Installation::instance().ensure();
    const DriverCall call;
    return libuvcInit(context, usb);
}

uvc_error_t driverDeviceList(uvc_context_t* context, uvc_device_t*** list)
{
    const DriverCall call;
    return libuvcDeviceList(context, list);
}

uvc_error_t driverDescriptor(uvc_device_t* device, uvc_device_descriptor_t** result)
{
    const DriverCall call;
    return libuvcDescriptor(device, result);
}

uvc_error_t driverOpen(uvc_device_t* device, uvc_device_handle_t** handle)
{
    const DriverCall call;
    return libuvcOpen(device, handle);
}
