// Compiled with optimisation and without instrumentation in every build: the calls to original
// functions must be jumps. Another user of libuvc may wait in one for longer than this library
// stays loaded.

#include "usb_guards.h"

#include "call_owner.h"
#include "driver_calls.h"

namespace usbguards
{

int guardInit(libusb_context** context)
{
    return isDriverCalling() ? forDriver::init(context) : originalUsb().init(context);
}

void guardExit(libusb_context* context)
{
    forget(context);
    originalUsb().exit(context);
}

int guardOpen(libusb_device* device, libusb_device_handle** handle)
{
    return isDriverCalling() ? forDriver::open(device, handle) : originalUsb().open(device, handle);
}

void guardClose(libusb_device_handle* handle)
{
    if (isDrivers(handle)) {
        forDriver::close(handle);
    } else {
        originalUsb().close(handle);
    }
}

int guardGetConfigDescriptor(libusb_device* device, std::uint8_t index,
                             libusb_config_descriptor** configuration)
{
    return isDriverCalling() ? forDriver::getConfigDescriptor(device, index, configuration)
                             : originalUsb().getConfigDescriptor(device, index, configuration);
}

int guardGetStringDescriptor(libusb_device_handle* handle, std::uint8_t index, unsigned char* data,
                             int length)
{
    return isDrivers(handle) ? forDriver::getStringDescriptor(handle, index, data, length)
                             : originalUsb().getStringDescriptor(handle, index, data, length);
}

int guardControlTransfer(libusb_device_handle* handle, std::uint8_t requestType,
                         std::uint8_t request, std::uint16_t value, std::uint16_t index,
                         unsigned char* data, std::uint16_t length, unsigned timeout)
{
    return isDrivers(handle) ? forDriver::controlTransfer(handle, requestType, request, value,
                                                          index, data, length, timeout)
                             : originalUsb().controlTransfer(handle, requestType, request, value,
                                                             index, data, length, timeout);
}

int guardSetInterfaceAltSetting(libusb_device_handle* handle, int interfaceNumber,
                                int alternateSetting)
{
    return isDrivers(handle)
               ? forDriver::setInterfaceAltSetting(handle, interfaceNumber, alternateSetting)
               : originalUsb().setInterfaceAltSetting(handle, interfaceNumber, alternateSetting);
}

int guardSubmitTransfer(libusb_transfer* transfer)
{
    return isDrivers(transfer) ? forDriver::submitTransfer(transfer)
                               : originalUsb().submitTransfer(transfer);
}

int guardCancelTransfer(libusb_transfer* transfer)
{
    return isDrivers(transfer) ? forDriver::cancelTransfer(transfer)
                               : originalUsb().cancelTransfer(transfer);
}

void guardFreeTransfer(libusb_transfer* transfer)
{
    if (!noteArrival(transfer)) {
        originalUsb().freeTransfer(transfer);
    }
}

int guardHandleEventsCompleted(libusb_context* context, int* completed)
{
    return isDrivers(context) ? forDriver::handleEventsCompleted(context, completed)
                              : originalUsb().handleEventsCompleted(context, completed);
}

} // namespace usbguards
