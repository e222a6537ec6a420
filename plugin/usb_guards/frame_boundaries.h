#pragma once

#include "payload_header.h"
#include "stream_times.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>

namespace usbguards
{

/// Follows how libuvc makes frames of the payloads of one video stream: where each ends, which
/// number it gets, and when its payloads came.
///
/// libuvc 0.0.6 numbers what it collects from 1 on. A frame ends with a payload that says so and
/// carries data, or before one of another frame id while anything is collected; whether the bytes
/// make a whole picture does not matter. libuvc 0.0.7 also ends a frame that has reached the size
/// that the camera announced, and drops those bytes of the payload that go beyond.
///
/// Not thread-safe: a stream's payloads come one after another.
class FrameBoundaries
{
public:
    struct EndedFrame {
        std::uint32_t sequence = 0;
        PayloadTimes times;
    };

    static constexpr std::uint64_t unlimited = std::numeric_limits<std::uint64_t>::max();

    /// @param limit bytes with which a frame is full, and ends.
    explicit FrameBoundaries(std::uint64_t limit = unlimited)
        : m_limit(limit)
    {
    }

    /// Takes note of the next payload that libuvc sees.
    ///
    /// @param header that of @p payload.
    /// @param now in nanoseconds of CLOCK_MONOTONIC.
    /// @return the frames that end before or with it, oldest first, valid until the next call.
    std::span<const EndedFrame> follow(const PayloadHeader& header,
                                       std::span<const std::uint8_t> payload, std::int64_t now);

private:
    void readClocks(const PayloadHeader& header, std::span<const std::uint8_t> payload);
    void endFrame();

    std::uint64_t m_limit;
    bool m_frameId = false;
    std::uint32_t m_sequence = 1; ///< of the frame under way
    PayloadTimes m_frame;         ///< under way once it has bytes
    std::array<EndedFrame, 2> m_ended;
    std::size_t m_endedCount = 0;
};

} // namespace usbguards
