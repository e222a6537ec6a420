// What lies behind the guards: the bus with one device.

#include "one_device_bus.h"
#include "usb_guards/original_usb.h"

#include <cstdlib>

using namespace usbguards;

namespace
{

const libusb_version version = {1, 0, 26, 11724, "", ""};

OriginalUsb makeFunctions()
{
    OriginalUsb functions{};
    functions.cancelTransfer = [](libusb_transfer*) -> int { return LIBUSB_ERROR_NOT_FOUND; };
    functions.close = [](libusb_device_handle*) { fuzz::OneDeviceBus::instance().noteClose(); };
    functions.controlTransfer = [](libusb_device_handle*, std::uint8_t requestType, std::uint8_t,
                                   std::uint16_t, std::uint16_t, unsigned char* data,
                                   std::uint16_t length, unsigned) {
        return fuzz::OneDeviceBus::instance().controlTransfer(requestType, {data, length});
    };
    functions.freeConfigDescriptor = [](usbguards::libusb_config_descriptor*) {};
    functions.freeTransfer = [](libusb_transfer* transfer) { std::free(transfer); };
    functions.getConfigDescriptor = [](libusb_device*, std::uint8_t,
                                       usbguards::libusb_config_descriptor** configuration) -> int {
        // The two declarations of the type have one layout.
        *configuration = reinterpret_cast<usbguards::libusb_config_descriptor*>(
            fuzz::OneDeviceBus::instance().getConfiguration());
        return LIBUSB_SUCCESS;
    };
    functions.getVersion = [] { return &version; };
    functions.handleEventsTimeoutCompleted = [](libusb_context*, timeval*, int*) -> int {
        fuzz::OneDeviceBus::instance().waitForClose();
        return LIBUSB_SUCCESS;
    };
    functions.kernelDriverActive = [](libusb_device_handle*, int) { return 0; };
    functions.setInterfaceAltSetting = [](libusb_device_handle*, int, int) -> int {
        return LIBUSB_SUCCESS;
    };
    functions.submitTransfer = [](libusb_transfer* transfer) -> int {
        return transfer->type == LIBUSB_TRANSFER_TYPE_INTERRUPT ? LIBUSB_SUCCESS
                                                                : LIBUSB_ERROR_NO_MEM;
    };
    return functions;
}

} // namespace

const OriginalUsb& usbguards::originalUsb()
{
    static const OriginalUsb functions = makeFunctions();
    return functions;
}
