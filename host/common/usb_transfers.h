#pragma once

#include <QByteArray>

namespace zrnhost
{

/// Memory that the transfers of a video stream take.
struct TransferMemory {
    qint64 bytes = 0;   ///< 0: the descriptors show no video stream
    bool exact = false; ///< otherwise the most that a camera with these descriptors can ask for
};

/// Memory of the transfers that libuvc submits for the largest frame of a camera.
///
/// libuvc keeps 100 transfers in flight. An isochronous one holds up to 32 packets of the
/// endpoint's size. A bulk one holds a payload, whose size the camera tells only when the stream is
/// negotiated: at most a frame and its header.
///
/// @param descriptors as the kernel keeps them: device descriptor, then configurations. Malformed
/// ones are read as far as they go. Thread safety: reentrant.
TransferMemory transferMemory(const QByteArray& descriptors);

} // namespace zrnhost
