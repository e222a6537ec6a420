#pragma once

#include <libusb.h>

/// What the guards ask before they decide on whose behalf they were called.
namespace usbguards
{

/// Whether the driver is calling libuvc on this thread.
bool isDriverCalling();
bool isDrivers(libusb_context* context);
bool isDrivers(libusb_device_handle* handle);
bool isDrivers(libusb_transfer* transfer);

/// The context is about to be destroyed.
void forget(libusb_context* context);

/// Takes note that a transfer is about to be freed, or of a test call.
/// @return whether it was a test, see leadsToGuard().
bool noteArrival(libusb_transfer* transfer);

} // namespace usbguards
