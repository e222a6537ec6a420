#pragma once

#include <dlfcn.h>

/// Whether the libuvc that the process has loaded is 0.0.7 or newer, which brought uvc_wrap(). It
/// ends a frame that has the size which the camera announced, whatever comes of it after that, and
/// starts a stream of which no transfer was taken.
inline bool libuvcIs007OrNewer()
{
    void* const libuvc = dlopen("libuvc.so.0", RTLD_NOW | RTLD_NOLOAD);
    if (!libuvc) {
        return false;
    }
    const bool isNewer = dlsym(libuvc, "uvc_wrap") != nullptr;
    dlclose(libuvc);
    return isNewer;
}
