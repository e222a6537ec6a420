#pragma once

#include <string>

/// How the driver stands against libuvc's known faults.
struct GuardStatus {
    bool areSafe;     ///< none of them can reach the host
    std::string text; ///< "in effect", or why guards are missing or not needed
};

/// Looks anew. Known once libuvc has been used. Defined by the library that the camera class
/// becomes a part of. Thread-safe.
GuardStatus guardStatus();
