#pragma once

#include <QString>
#include <QVersionNumber>

/// Versions of the USB libraries that this process gets; null where a library or its version cannot
/// be found.
struct LibraryVersions {
    QVersionNumber libusb;
    QVersionNumber libuvc;
    bool isGuarded = false; ///< the driver stands between the two and answers for their faults
};

/// Asks the libraries that the dynamic linker finds, as the plugin will get them.
/// @param plugin file of the driver; it need not be there.
LibraryVersions loadedLibraryVersions(const QString& plugin);
