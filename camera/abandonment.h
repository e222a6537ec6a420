#pragma once

#include <libuvc/libuvc.h>

/// What the plugin knows and does about cameras that libuvc is not asked to close.
struct Abandonment {
    /// Whether libuvc must not be asked to stop or close a camera any more, because the camera has
    /// left the bus and the call would end the process or never return.
    bool (*test)(uvc_device_handle_t* handle) = nullptr;
    /// Keeps the driver's library, and with it libuvc, loaded until the process ends.
    void (*keepLibraryLoaded)() = nullptr;
};

/// Sets what the functions below use. Without it, libuvc is always asked, and the library is
/// unloaded when its host unloads it. To be called while no camera is open.
void setAbandonment(const Abandonment& abandonment);

/// Asks the test. Thread-safe.
bool mustAbandon(uvc_device_handle_t* handle);

/// To be called when a handle is given up that is still open: libuvc's threads for it go on.
/// Thread-safe.
void keepLibraryLoaded();
