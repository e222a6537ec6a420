#pragma once

#include "model/usb.h"

#include <cstddef>
#include <cstdint>
#include <linux/usbdevice_fs.h>
#include <vector>

namespace zrnsim
{

/// usbdevfs_urb without its trailing array, which lies behind it in the client's memory.
struct UrbHeader {
    unsigned char type;
    unsigned char endpoint;
    int status;
    unsigned flags;
    void* buffer;
    int bufferLength;
    int actualLength;
    int startFrame;
    int numberOfPackets;
    int errorCount;
    unsigned signal;
    void* userContext;
};
static_assert(sizeof(UrbHeader) == sizeof(usbdevfs_urb));
static_assert(offsetof(UrbHeader, errorCount) == offsetof(usbdevfs_urb, error_count));

/// A USB request block of a client, from its submission until it is reaped.
struct Urb {
    std::uint64_t id = 0;       ///< unique for the device node
    std::uintptr_t address = 0; ///< of the client's usbdevfs_urb
    UrbHeader request{};        ///< the client's, with the results filled in
    std::vector<usbdevfs_iso_packet_desc> packets;
    std::vector<std::uint64_t> startedFrames; ///< what the camera calls frames that begin in it

    std::uintptr_t buffer() const { return reinterpret_cast<std::uintptr_t>(request.buffer); }
    std::size_t length() const { return static_cast<std::size_t>(request.bufferLength); }
};

} // namespace zrnsim
