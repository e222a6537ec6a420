#pragma once

#include "usb_guards/libusb_functions.h"

#include <functional>
#include <string>
#include <vector>

/// Stand-in for libusb behind the guards: answers what a test sets, and notes the calls.
struct FakeUsb {
    int submitResult = usbguards::LIBUSB_SUCCESS;
    int cancelResult = usbguards::LIBUSB_SUCCESS;
    int controlResult = 0;
    int kernelDriverResult = 0;
    int setInterfaceResult = usbguards::LIBUSB_SUCCESS;
    std::function<void()> event; ///< what happens while events are handled
    unsigned controlTimeout = 0; ///< of the last control transfer
    std::vector<std::string> calls;

    static FakeUsb& instance();
};
