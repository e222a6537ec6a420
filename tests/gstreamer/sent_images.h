#pragma once

#include "virtual_camera.h"

#include <gst/gst.h>

/// Whether an image is byte for byte one that the camera has sent under this frame number, of which
/// the low byte is sure. Fails the test otherwise. @param letter 'A' or 'B'
bool isSentImage(VirtualCamera& camera, std::uint64_t number, char letter, GstSample* sample);
