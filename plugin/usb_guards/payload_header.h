#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace usbguards
{

/// The header of a UVC payload, as libuvc reads it.
struct PayloadHeader {
    bool isIgnored = true; ///< libuvc drops the payload
    std::size_t size = 0;  ///< as the header tells
    std::size_t dataSize = 0;
    bool hasInfo = false; ///< without it the payload belongs to the frame under way
    bool frameId = false;
    bool endsFrame = false; ///< where there is data
    bool hasPresentationTime = false;
    bool hasSourceClock = false;

    static PayloadHeader of(std::span<const std::uint8_t> payload);

    /// Bytes of a header with the fields that this one announces, which libuvc reads whatever the
    /// header's length says.
    [[nodiscard]] std::size_t announcedSize() const;
};

} // namespace usbguards
