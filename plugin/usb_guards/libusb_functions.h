#pragma once

#include "libusb_types.h"

struct timeval;

namespace usbguards
{

// The functions of libusb that the guards stand in front of, or call.
extern "C" {

int libusb_cancel_transfer(libusb_transfer* transfer);
void libusb_close(libusb_device_handle* handle);
int libusb_control_transfer(libusb_device_handle* handle, std::uint8_t requestType,
                            std::uint8_t request, std::uint16_t value, std::uint16_t index,
                            unsigned char* data, std::uint16_t length, unsigned timeout);
void libusb_free_config_descriptor(libusb_config_descriptor* configuration);
void libusb_free_transfer(libusb_transfer* transfer);
int libusb_get_config_descriptor(libusb_device* device, std::uint8_t index,
                                 libusb_config_descriptor** configuration);
const libusb_version* libusb_get_version();
int libusb_handle_events_completed(libusb_context* context, int* completed);
int libusb_handle_events_timeout_completed(libusb_context* context, timeval* timeout,
                                           int* completed);
int libusb_kernel_driver_active(libusb_device_handle* handle, int interfaceNumber);
int libusb_set_interface_alt_setting(libusb_device_handle* handle, int interfaceNumber,
                                     int alternateSetting);
int libusb_submit_transfer(libusb_transfer* transfer);
}

} // namespace usbguards
