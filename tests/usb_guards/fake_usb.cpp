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
    functions.exit = [](libusb_context*) { FakeUsb::instance().calls.emplace_back("exit"); };
    functions.freeConfigDescriptor = [](libusb_config_descriptor*) {
        FakeUsb::instance().calls.emplace_back("free config");
    };
    functions.getConfigDescriptor = [](libusb_device*, std::uint8_t,
                                       libusb_config_descriptor** configuration) -> int {
        FakeUsb::instance().calls.emplace_back("get config");
        *configuration = &FakeUsb::instance().configuration;
        return LIBUSB_SUCCESS;
    };
    functions.getStringDescriptor = [](libusb_device_handle*, std::uint8_t, unsigned char*, int) {
        FakeUsb::instance().calls.emplace_back("get string");
        return FakeUsb::instance().controlResult;
    };
    functions.handleEventsCompleted = [](libusb_context*, int*) -> int {
        FakeUsb::instance().calls.emplace_back("events");
        return LIBUSB_SUCCESS;
    };
    functions.handleEventsTimeoutCompleted = [](libusb_context*, timeval* timeout, int*) -> int {
        FakeUsb::instance().calls.emplace_back("events for " + std::to_string(timeout->tv_sec) +
                                               " s");
        return LIBUSB_SUCCESS;
    };
    functions.init = [](libusb_context** context) -> int {
        FakeUsb::instance().calls.emplace_back("init");
        *context = FakeUsb::instance().context;
        return LIBUSB_SUCCESS;
    };
    functions.open = [](libusb_device*, libusb_device_handle** handle) -> int {
        FakeUsb::instance().calls.emplace_back("open");
        *handle = FakeUsb::instance().handle;
        return LIBUSB_SUCCESS;
    };
    functions.kernelDriverActive = [](libusb_device_handle*, int) {
        return FakeUsb::instance().kernelDriverResult;
    };
    functions.claimInterface = [](libusb_device_handle*, int) {
        return FakeUsb::instance().claimResult;
    };
    functions.setInterfaceAltSetting = [](libusb_device_handle*, int, int) {
        FakeUsb::instance().calls.emplace_back("set interface");
        FakeUsb::instance().claimResult = FakeUsb::instance().claimResultAfterSetting;
        return FakeUsb::instance().setInterfaceResult;
    };
    functions.submitTransfer = [](libusb_transfer*) {
        FakeUsb::instance().calls.emplace_back("submit");
        if (FakeUsb::instance().onSubmit) {
            FakeUsb::instance().onSubmit();
        }
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
    static const OriginalUsb all = makeFunctions();
    static const OriginalUsb shown = [] {
        OriginalUsb functions = makeFunctions();
        functions.getVersion = nullptr;
        functions.handleEventsTimeoutCompleted = nullptr;
        functions.kernelDriverActive = nullptr;
        return functions;
    }();
    return FakeUsb::instance().showsAll ? all : shown;
}
