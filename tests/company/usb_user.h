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

/// Streams from a capture device. @param ordinal which of them, from 1.
void useUvc(unsigned ordinal, TellStep tell, void* context);
}

/// The name of the case of the capture device.
inline constexpr const char* captureCase = "capture_device";

inline constexpr const char* usbCases[]{
    "descriptors", "control",    "slow_control", "slower_control", "bulk",
    "replies",     "stream",     "stream_ahead", "time_outs",      "cancelling",
    "stalls",      "interrupts", "isochronous",  "idle_events",    "unplugging",
};
