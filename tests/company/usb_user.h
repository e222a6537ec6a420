#pragma once

/// Another user of USB, as a library of its own: it drives a gadget of the virtual bus through
/// libusb and a capture device through libuvc, knows nothing of the driver, and tells step by step
/// what it saw.
extern "C" {

/// @param outcome what came back: codes, lengths, bytes. The same each time the step is made.
using TellStep = void (*)(void* context, const char* step, const char* outcome,
                          double milliseconds);

/// Goes through one of usbCases. @param ordinal which of the gadgets, from 1.
void useUsb(const char* name, unsigned ordinal, TellStep tell, void* context);

/// Goes through one of uvcCases, each of which streams from a capture device.
/// @param ordinal which of them, from 1.
/// @return false when there is no such case.
bool useUvc(const char* name, unsigned ordinal, TellStep tell, void* context);
}

inline constexpr const char* uvcCases[]{"capture_device", "capture_unplugging"};

inline constexpr const char* usbCases[]{
    "descriptors", "control",    "slow_control", "slower_control", "bulk",
    "replies",     "stream",     "stream_ahead", "time_outs",      "cancelling",
    "stalls",      "interrupts", "isochronous",  "idle_events",    "unplugging",
};
