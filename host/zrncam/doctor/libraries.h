#pragma once

#include <QString>
#include <QVersionNumber>

/// Versions of the USB libraries that this process gets; null where a library or its version cannot
/// be found.
struct LibraryVersions {
    QVersionNumber libusb;
    QVersionNumber libuvc;
};

/// Asks the libraries that the dynamic linker finds, as the plugin will get them.
LibraryVersions loadedLibraryVersions();
