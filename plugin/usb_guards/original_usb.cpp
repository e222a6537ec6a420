#include "original_usb.h"

#include <dlfcn.h>

namespace usbguards
{
namespace
{

/// The loaded libusb. Nobody but libuvc calls the guards, so it is there; it stays because libuvc
/// needs it.
void* loadedUsb()
{
    void* const usb = dlopen("libusb-1.0.so.0", RTLD_LAZY | RTLD_NOLOAD);
    if (!usb) {
        return RTLD_NEXT;
    }
    dlclose(usb);
    return usb;
}

template <typename Function>
void find(void* usb, const char* name, Function*& function)
{
    function = reinterpret_cast<Function*>(dlsym(usb, name));
}

OriginalUsb findAll()
{
    void* const usb = loadedUsb();
    OriginalUsb functions{};
    find(usb, "libusb_cancel_transfer", functions.cancelTransfer);
    find(usb, "libusb_close", functions.close);
    find(usb, "libusb_control_transfer", functions.controlTransfer);
    find(usb, "libusb_free_config_descriptor", functions.freeConfigDescriptor);
    find(usb, "libusb_free_transfer", functions.freeTransfer);
    find(usb, "libusb_get_config_descriptor", functions.getConfigDescriptor);
    find(usb, "libusb_get_version", functions.getVersion);
    find(usb, "libusb_handle_events_timeout_completed", functions.handleEventsTimeoutCompleted);
    find(usb, "libusb_kernel_driver_active", functions.kernelDriverActive);
    find(usb, "libusb_set_interface_alt_setting", functions.setInterfaceAltSetting);
    find(usb, "libusb_submit_transfer", functions.submitTransfer);
    return functions;
}

} // namespace

const OriginalUsb& originalUsb()
{
    static const OriginalUsb functions = findAll();
    return functions;
}

} // namespace usbguards
