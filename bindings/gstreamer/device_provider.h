#pragma once

#include <gst/gst.h>

/// The type of the provider `zrndeviceprovider`, which tells the cameras on the bus without opening
/// them.
GType zrn_device_provider_get_type();
