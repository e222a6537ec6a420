#pragma once

#include <libusb.h>
#include <libuvc/libuvc.h>

/// What programs may ask of the stand-in for libuvc, beside the functions of libuvc that the driver
/// leads past its guards. Each calls the functions of libusb that its name says.
extern "C" {
int standInControl(uvc_device_handle_t* handle);
/// Submits, cancels and frees a bulk transfer. @return what cancelling it answered
int standInTransfer(uvc_device_handle_t* handle, bool isSubmitted);
int standInEvents(uvc_context_t* context);
}
