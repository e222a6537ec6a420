#pragma once

#include <memory>

namespace usbguards
{

struct CloseLibrary {
    void operator()(void* library) const;
};

/// Keeps a library loaded, and looks up its functions with dlsym().
using LibraryReference = std::unique_ptr<void, CloseLibrary>;

/// The loaded library that an address points into; null if it cannot be referred to.
LibraryReference libraryAround(const void* address);

/// The name under which the library was loaded, or the program's; empty if there is none.
const char* libraryName(const void* address);

/// Keeps this library loaded until the process ends.
void stayLoaded();

} // namespace usbguards
