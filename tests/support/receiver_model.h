#pragma once

#include "pictures/frame_composer.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

/// What a host makes of a frame, without the code of either driver or simulator.
struct ReceivedImages {
    std::optional<std::vector<std::uint8_t>> a;
    std::optional<std::vector<std::uint8_t>> b;
    std::uint64_t trailer = 0;
};

ReceivedImages receiveFrame(int sensorType, std::size_t width, std::size_t height,
                            const std::vector<std::uint8_t>& frame);

namespace zrnsim
{

/// What a host must receive for one frame.
struct SentImages {
    std::vector<std::uint8_t> a; ///< image A, width * height bytes, empty without hasA
    std::vector<std::uint8_t> b; ///< image B, likewise
    bool hasA = false;           ///< image A is delivered
    bool hasB = false;           ///< image B is delivered
    std::uint64_t trailer = 0;
};

SentImages expectedImages(const FrameRequest& request);

/// The value that a host stores behind each image of a frame: frame bytes 2 to 5, each
/// sign-extended to 64 bits before it is shifted into its place.
std::uint64_t trailerOf(const FrameRequest& request);

} // namespace zrnsim
