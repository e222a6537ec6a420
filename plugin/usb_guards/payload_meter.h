#pragma once

#include "payload_header.h"

#include <cstddef>

namespace usbguards
{

/// Follows how the payloads of one video stream fill libuvc's frame buffer, so that a payload that
/// would run over its end can be withheld.
///
/// libuvc up to 0.0.6 collects the payloads of a frame in a buffer of a fixed size, without looking
/// at its end, until a payload closes the frame or belongs to the next one.
///
/// Not thread-safe: a stream's payloads come one after another.
class PayloadMeter
{
public:
    /// Size of libuvc's frame buffer, in bytes.
    static constexpr std::size_t frameBufferSize = std::size_t{16} * 1024 * 1024;

    /// Takes note of the next payload.
    ///
    /// @param capacity bytes that may be read from the start of the payload.
    /// @return false when libuvc must not see the payload.
    bool accept(const PayloadHeader& header, std::size_t capacity);

private:
    std::size_t m_collected = 0; ///< bytes of the current frame
    bool m_frameId = false;
};

} // namespace usbguards
