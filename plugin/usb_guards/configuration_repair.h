#pragma once

#include <libusb.h>

namespace usbguards
{

/// Makes the class-specific descriptors of a video device's configuration safe for libuvc.
/// @return false when libuvc must not see the device at all.
bool repairConfiguration(libusb_config_descriptor& configuration);

} // namespace usbguards
