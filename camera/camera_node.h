#pragma once

#include <QReadWriteLock>
#include <QString>
#include <libuvc/libuvc.h>

/// One enumerated camera.
///
/// Ownership: CZRNCamera's node table owns the record, the record owns its libuvc objects. Every
/// node has a libuvc context of its own, because a context does not survive closing its last
/// device.
///
/// Locking: `accessLock` is held for reading during each libuvc call on `handle`, and for writing
/// while the three libuvc objects are replaced or closed. It is the innermost lock: whoever holds
/// it takes no other lock of the driver, except a camera's control mutex.
struct CameraNode {
    QString serial;                 ///< decimal serial key, equal to the node's key in the table
    uvc_device_t* device = nullptr; ///< referenced
    uvc_device_handle_t* handle = nullptr; ///< null once the camera has been closed
    uvc_context_t* context = nullptr;      ///< of this node alone
    bool isOpen = false; ///< filled from an open device, and not disconnected since

    QReadWriteLock accessLock;
};
