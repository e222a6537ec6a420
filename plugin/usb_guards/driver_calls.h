#pragma once

#include <libusb.h>

#include <cstdint>

/// What the guards do for the driver's own contexts, handles and transfers.
namespace usbguards::forDriver
{

int init(libusb_context** context);
int open(libusb_device* device, libusb_device_handle** handle);
void close(libusb_device_handle* handle);
int getConfigDescriptor(libusb_device* device, std::uint8_t index,
                        libusb_config_descriptor** configuration);
int getStringDescriptor(libusb_device_handle* handle, std::uint8_t index, unsigned char* data,
                        int length);
int controlTransfer(libusb_device_handle* handle, std::uint8_t requestType, std::uint8_t request,
                    std::uint16_t value, std::uint16_t index, unsigned char* data,
                    std::uint16_t length, unsigned timeout);
int setInterfaceAltSetting(libusb_device_handle* handle, int interfaceNumber, int alternateSetting);
int submitTransfer(libusb_transfer* transfer);
int cancelTransfer(libusb_transfer* transfer);
int handleEventsCompleted(libusb_context* context, int* completed);

/// Whether the device behind a handle has left the bus. One local request where libusb offers it.
bool hasDeparted(libusb_device_handle* handle, int interfaceNumber);

} // namespace usbguards::forDriver
