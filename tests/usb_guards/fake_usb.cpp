#include "fake_usb.h"

#include "usb_guards/original_usb.h"

using namespace usbguards;

namespace
{

const libusb_version faultyVersion = {1, 0, 26, 11724, "", ""};

OriginalUsb makeFunctions()
{
    OriginalUsb functions{};
    functions.cancelTransfer = [](libusb_transfer*) {
        FakeUsb::instance().calls.emplace_back("cancel");
        return FakeUsb::instance().cancelResult;
    };
    functions.close = [](libusb_device_handle*) {
        FakeUsb::instance().calls.emplace_back("close");
    };
    functions.controlTransfer = [](libusb_device_handle*, std::uint8_t, std::uint8_t, std::uint16_t,
                                   std::uint16_t, unsigned char*, std::uint16_t, unsigned timeout) {
        FakeUsb::instance().calls.emplace_back("control");
        FakeUsb::instance().controlTimeout = timeout;
        return FakeUsb::instance().controlResult;
    };
    functions.freeTransfer = [](libusb_transfer*) {
        FakeUsb::instance().calls.emplace_back("free");
    };
    functions.getVersion = [] { return &faultyVersion; };
    functions.handleEventsTimeoutCompleted = [](libusb_context*, timeval*, int*) -> int {
        FakeUsb::instance().event();
        return LIBUSB_SUCCESS;
    };
    functions.kernelDriverActive = [](libusb_device_handle*, int) {
        return FakeUsb::instance().kernelDriverResult;
    };
    functions.setInterfaceAltSetting = [](libusb_device_handle*, int, int) {
        FakeUsb::instance().calls.emplace_back("set interface");
        return FakeUsb::instance().setInterfaceResult;
    };
    functions.submitTransfer = [](libusb_transfer*) {
        FakeUsb::instance().calls.emplace_back("submit");
        return FakeUsb::instance().submitResult;
    };
    return functions;
}

} // namespace

FakeUsb& FakeUsb::instance()
{
    static FakeUsb usb;
    return usb;
}

const usbguards::OriginalUsb& usbguards::originalUsb()
{
    static const OriginalUsb functions = makeFunctions();
    return functions;
}
