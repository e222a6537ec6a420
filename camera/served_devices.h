#pragma once

#include <libuvc/libuvc.h>

#include <cstdint>

/// Tells libuvc to give back the references to the devices of a list that is freed.
inline constexpr std::uint8_t unreferenceDevices = 1;

inline bool matches(const uvc_device_descriptor_t& descriptor, int vendorId, int productId)
{
    return descriptor.idVendor == vendorId && descriptor.idProduct == productId;
}
