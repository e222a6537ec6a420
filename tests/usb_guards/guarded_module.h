#pragma once

#include <libuvc/libuvc.h>

#include <string>

/// What a library with guards does for a test: the driver's part.
struct GuardedModule {
    void (*open)(uvc_context_t** context, uvc_device_handle_t** handle);
    void (*close)(uvc_context_t* context, uvc_device_handle_t* handle);
    std::string (*status)();
    void (*keepLoaded)();
};
