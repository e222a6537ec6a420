#pragma once

#include <QByteArray>

#include <optional>

namespace zrnhost
{

/// How a size of transfers is known, the surest first.
enum class SizeBasis {
    Descriptors, ///< follows from the descriptors
    Camera,      ///< the camera told its payload size
    FrameSize,   ///< guessed: payloads of one frame each; smaller ones need less, larger ones more
};

/// Memory that the transfers of a video stream take.
struct TransferMemory {
    qint64 bytes = 0; ///< 0: the descriptors show no video stream
    SizeBasis basis = SizeBasis::Descriptors;
};

/// Memory of the transfers that libuvc submits for the largest frame of a camera.
///
/// libuvc keeps 100 transfers in flight. An isochronous one holds up to 32 packets of the
/// endpoint's size. A bulk one holds a payload, whose size no descriptor tells.
///
/// @param descriptors as the kernel keeps them: device descriptor, then configurations. Malformed
/// ones are read as far as they go.
/// @param payloadBytes what payloadBytesOf() read of the camera, where it could be asked
/// Thread safety: reentrant.
TransferMemory transferMemory(const QByteArray& descriptors, std::optional<qint64> payloadBytes);

/// Number of the interface that streams video, the first if there are several; from the descriptors
/// as for transferMemory(). Thread safety: reentrant.
std::optional<quint8> videoStreamInterface(const QByteArray& descriptors);

/// Bytes of the probe control's block up to and with the payload size, in every version of UVC.
inline constexpr int probeBlockBytes = 26;

/// dwMaxPayloadTransferSize of a camera's answer to a request for VS_PROBE_CONTROL, its header
/// included; nothing when the answer is too short or tells no size. Thread safety: reentrant.
std::optional<qint64> payloadBytesOf(const QByteArray& probeBlock);

} // namespace zrnhost
