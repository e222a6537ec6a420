#pragma once

#include <libusb.h>

#include <string>
#include <vector>

/// A libusb that notes what it is asked, and by whom.
struct StandInUsb {
    struct Call {
        std::string function;
        std::string caller; ///< the library that the call returns to
        unsigned timeout = 0;
    };
    std::vector<Call> calls;
    bool holdsEvents = false; ///< event handling does not return
    bool isHandlingEvents = false;
};

extern "C" {
StandInUsb* standInUsb();
/// Runs with the stand-in's lock held.
void withStandInUsb(void (*change)(StandInUsb& usb, void* data), void* data);
}
