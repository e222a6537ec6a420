#pragma once

#include "libusb_functions.h"

namespace usbguards
{

/// libusb's own functions, behind the definitions that this library puts in front of them.
struct OriginalUsb {
    decltype(&libusb_cancel_transfer) cancelTransfer;
    decltype(&libusb_close) close;
    decltype(&libusb_control_transfer) controlTransfer;
    decltype(&libusb_free_config_descriptor) freeConfigDescriptor;
    decltype(&libusb_free_transfer) freeTransfer;
    decltype(&libusb_get_config_descriptor) getConfigDescriptor;
    decltype(&libusb_get_version) getVersion;
    decltype(&libusb_handle_events_timeout_completed) handleEventsTimeoutCompleted;
    decltype(&libusb_kernel_driver_active) kernelDriverActive;
    decltype(&libusb_set_interface_alt_setting) setInterfaceAltSetting;
    decltype(&libusb_submit_transfer) submitTransfer;
};

/// The functions of the libusb that the process has loaded. Thread-safe.
const OriginalUsb& originalUsb();

} // namespace usbguards
