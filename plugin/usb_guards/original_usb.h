#pragma once

#include <libusb.h>

namespace usbguards
{

/// The functions that libuvc would call without the guards: libusb's own, or what another library
/// has put in front of them. Those that the process does not have are null.
struct OriginalUsb {
    decltype(&libusb_cancel_transfer) cancelTransfer;
    decltype(&libusb_claim_interface) claimInterface;
    decltype(&libusb_close) close;
    decltype(&libusb_control_transfer) controlTransfer;
    decltype(&libusb_exit) exit;
    decltype(&libusb_free_config_descriptor) freeConfigDescriptor;
    decltype(&libusb_free_transfer) freeTransfer;
    decltype(&libusb_get_config_descriptor) getConfigDescriptor;
    decltype(&libusb_get_string_descriptor_ascii) getStringDescriptor;
    decltype(&libusb_get_version) getVersion;
    decltype(&libusb_handle_events_completed) handleEventsCompleted;
    decltype(&libusb_handle_events_timeout_completed) handleEventsTimeoutCompleted;
    decltype(&libusb_init) init;
    decltype(&libusb_kernel_driver_active) kernelDriverActive;
    decltype(&libusb_open) open;
    decltype(&libusb_set_interface_alt_setting) setInterfaceAltSetting;
    decltype(&libusb_submit_transfer) submitTransfer;
};

/// Set before the first guard can be called. Thread-safe.
const OriginalUsb& originalUsb();
void setOriginalUsb(const OriginalUsb& functions);

} // namespace usbguards
