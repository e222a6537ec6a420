#pragma once

#include "model/camera_config.h"

namespace zrnsim
{

/// The probe and commit block of UVC 1.1.
struct StreamParameters {
    static constexpr std::size_t wireSize = 34;
    static constexpr std::size_t shortWireSize = 26; ///< as hosts of UVC 1.0 write it

    std::uint16_t hint = 0;
    std::uint8_t formatIndex = 1;
    std::uint8_t frameIndex = 1;
    std::uint32_t frameInterval = 0; ///< 100 ns
    std::uint32_t maxVideoFrameSize = 0;
    std::uint32_t maxPayloadTransferSize = 0;

    Bytes encode() const;

    /// Format, frame and interval of the host's block; the rest is the device's to fill.
    static StreamParameters decode(ByteView data);

    friend bool operator==(const StreamParameters&, const StreamParameters&) = default;
};

/// The nearest parameters that the camera can stream: unknown indices become the defaults, the
/// interval the nearest of the list.
StreamParameters negotiate(const CameraConfig& config, const StreamParameters& wanted);

/// Answer to GET_MIN or GET_MAX: the wanted format and size with the shortest or longest interval.
StreamParameters negotiationBound(const CameraConfig& config, const StreamParameters& wanted,
                                  bool isMaximum);

/// Frame size and format of negotiated parameters.
FrameSize sizeOf(const CameraConfig& config, const StreamParameters& parameters);
PixelPacking packingOf(const CameraConfig& config, const StreamParameters& parameters);

} // namespace zrnsim
