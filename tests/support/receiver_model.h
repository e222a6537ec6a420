#pragma once

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
