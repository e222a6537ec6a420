#pragma once

#include <libuvc/libuvc.h>

// What libuvc is not asked to close. Defined by the library that the camera class becomes a
// part of.

/// Whether libuvc must not be asked to stop or close a camera any more, because the camera has left
/// the bus and the call would end the process or never return. Thread-safe.
bool mustAbandon(uvc_device_handle_t* handle);

/// Leaves the driver's guards where they are until the process ends. Takes no lock. Thread-safe.
void keepGuards();

/// Keeps the driver's library, and with it libuvc, loaded until the process ends. To be called when
/// a handle or a context is given up that is still open: the libraries' threads for it go on, and
/// the guards stay in place. Thread-safe.
void keepLibraryLoaded();
