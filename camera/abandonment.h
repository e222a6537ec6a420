#pragma once

#include <libuvc/libuvc.h>

/// Whether libuvc must not be asked to stop or close a camera any more, because the camera has left
/// the bus and the call would end the process or never return.
using AbandonmentTest = bool (*)(uvc_device_handle_t* handle);

/// Sets the test that mustAbandon() makes. Without one, libuvc is always asked. To be called while
/// no camera is open.
void setAbandonmentTest(AbandonmentTest test);

/// Asks the test. Thread-safe.
bool mustAbandon(uvc_device_handle_t* handle);
