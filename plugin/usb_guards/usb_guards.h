#pragma once

#include "original_usb.h"

#include <cstdint>
#include <span>

/// Functions that are entered into libuvc's linkage table in the place of libusb's, and that keep
/// the process alive where stock versions of the two libraries fail. docs/reliability.md tells
/// which fault each answers.
///
/// They act on the driver's contexts, handles and transfers alone. Every other call goes on to the
/// original function by a jump, with the arguments that it came with. Thread-safe.
namespace usbguards
{

int guardInit(libusb_context** context);
void guardExit(libusb_context* context);
int guardOpen(libusb_device* device, libusb_device_handle** handle);
void guardClose(libusb_device_handle* handle);
int guardGetConfigDescriptor(libusb_device* device, std::uint8_t index,
                             libusb_config_descriptor** configuration);
int guardGetStringDescriptor(libusb_device_handle* handle, std::uint8_t index, unsigned char* data,
                             int length);
int guardControlTransfer(libusb_device_handle* handle, std::uint8_t requestType,
                         std::uint8_t request, std::uint16_t value, std::uint16_t index,
                         unsigned char* data, std::uint16_t length, unsigned timeout);
int guardSetInterfaceAltSetting(libusb_device_handle* handle, int interfaceNumber,
                                int alternateSetting);
int guardSubmitTransfer(libusb_transfer* transfer);
int guardCancelTransfer(libusb_transfer* transfer);
void guardFreeTransfer(libusb_transfer* transfer);
int guardHandleEventsCompleted(libusb_context* context, int* completed);

/// Whether calling @p freeTransfer arrives at guardFreeTransfer(), perhaps through others' guards.
/// It is called with a null pointer, which libusb ignores.
bool leadsToGuard(decltype(&libusb_free_transfer) freeTransfer);

/// A function of libusb, and where OriginalUsb keeps it.
struct UsbFunction {
    const char* name;
    void* guard; ///< null where no guard is needed
    void (*keep)(OriginalUsb& functions, void* original);
};

/// All that the guards stand in front of, or call.
std::span<const UsbFunction> usbFunctions();

} // namespace usbguards
