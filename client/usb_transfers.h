#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace zrn
{

/// How a size of transfers is known, the surest first.
enum class SizeBasis {
    Descriptors, ///< follows from the descriptors
    Camera,      ///< the camera told its payload size
    FrameSize,   ///< guessed: payloads of one frame each; smaller ones need less, larger ones more
};

/// Memory that the transfers of a video stream take.
struct TransferMemory {
    std::int64_t bytes = 0; ///< 0: the descriptors show no video stream
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
TransferMemory transferMemory(std::string_view descriptors,
                              std::optional<std::int64_t> payloadBytes);

/// What a connection carries of a camera's largest frames.
struct LinkRate {
    int width = 0;
    int height = 0;
    double offered = 0; ///< frames per second, the most that the descriptors list for it
    double carried = 0; ///< frames per second that there is room for, about
};

/// Whether a connection has room for what the camera offers; nothing for USB 3, which has, and
/// where speed or descriptors do not tell. @param megabits speed of the connection Thread safety:
/// reentrant.
std::optional<LinkRate> linkRate(std::string_view descriptors, double megabits);

/// Time from one frame to the next that a camera is set to when its stream starts: the first that
/// it offers for its first size. 0 where the descriptors do not tell. Thread safety: reentrant.
std::chrono::nanoseconds nominalPeriod(std::string_view descriptors);

/// Number of the interface that streams video, the first if there are several; from the descriptors
/// as for transferMemory(). Thread safety: reentrant.
std::optional<std::uint8_t> videoStreamInterface(std::string_view descriptors);

/// Bytes of the probe control's block up to and with the payload size, in every version of UVC.
inline constexpr std::size_t probeBlockBytes = 26;

/// dwMaxPayloadTransferSize of a camera's answer to a request for VS_PROBE_CONTROL, its header
/// included; nothing when the answer is too short or tells no size. Thread safety: reentrant.
std::optional<std::int64_t> payloadBytesOf(std::string_view probeBlock);

} // namespace zrn
