#pragma once

#include <libusb.h>

#include <functional>
#include <string>
#include <vector>

/// Stand-in for libusb behind the guards: answers what a test sets, and notes the calls.
struct FakeUsb {
    int submitResult = LIBUSB_SUCCESS;
    int cancelResult = LIBUSB_SUCCESS;
    int claimResult = LIBUSB_SUCCESS;
    int claimResultAfterSetting = LIBUSB_SUCCESS; ///< an interface's setting
    int controlResult = 0;
    int kernelDriverResult = 0;
    int setInterfaceResult = LIBUSB_SUCCESS;
    unsigned controlTimeout = 0;            ///< of the last control transfer
    bool showsAll = true;                   ///< also the functions that libuvc does not call
    libusb_context* context = nullptr;      ///< the next one
    libusb_device_handle* handle = nullptr; ///< the next one
    libusb_config_descriptor configuration{};
    std::vector<std::string> calls;
    std::function<void()> onSubmit; ///< runs in each submission

    static FakeUsb& instance();
};
