#pragma once

#include "stream_times.h"

#include <libuvc/libuvc.h>

#include <memory>

// Who sees the payloads of streams. Defined by the library that the camera class becomes a part of.

/// Has the frames of the stream that starts next on this handle noted, where their payloads are
/// seen. Thread-safe.
///
/// @param control what the stream will be started with
void watchPayloads(uvc_device_handle_t* handle, const uvc_stream_ctrl_t& control,
                   std::shared_ptr<StreamTimes> times);
