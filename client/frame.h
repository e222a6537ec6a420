#pragma once

#include "client/frame_numbers.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

namespace zrn
{

/// One image of a frame.
struct Image {
    char letter = 'A'; ///< 'A' or 'B'
    /// As the driver delivered it: the pixels, rows from top to bottom without padding, then the
    /// trailer.
    std::span<const std::uint8_t> bytes;

    static constexpr std::size_t trailerBytes = 8;

    /// One byte for each pixel.
    [[nodiscard]] std::span<const std::uint8_t> pixels() const
    {
        return bytes.first(bytes.size() - trailerBytes);
    }
    /// Bytes 2 to 5 of the camera's frame, each sign-extended.
    [[nodiscard]] std::uint64_t trailer() const;
};

/// When a frame was there, on CLOCK_MONOTONIC. What each time means: docs/frame-times.md.
struct FrameTimes {
    using time_point = std::chrono::steady_clock::time_point;

    /// What the times were taken at.
    enum class Source {
        Grab,     ///< the driver tells none: all are the frame's arrival at the host
        HandOver, ///< all are the hand-over to the driver
        Payload,  ///< each is what it says
    };
    Source source = Source::Grab;
    time_point firstPayload; ///< the first bytes of the frame were in the process
    time_point lastPayload;  ///< the last ones were
    time_point handOver;     ///< the driver got the whole frame

    /// The camera's own clock: a count of 32 bits that wraps.
    std::optional<std::uint32_t> captured; ///< when the camera began to take the frame
    std::optional<std::uint32_t> sent;     ///< when it sent the payload that tells
    std::uint32_t cameraHz = 0;            ///< rate of that clock; 0: the camera does not tell
};
/// "grab", "hand-over", "payload".
const char* nameOf(FrameTimes::Source source);

/// One frame of a camera: one or two images, taken at once. Its copies share the memory of the
/// images, which lives as long as the last of them, whatever becomes of stream and camera. They
/// keep the driver loaded, which made that memory.
///
/// Thread safety: reentrant; it is not changed once it is handed out.
struct Frame {
    static constexpr std::size_t mostImages = 2;

    std::uint32_t width = 0;  ///< pixels in a row of each image
    std::uint32_t height = 0; ///< rows of each image
    std::array<Image, mostImages> stored;
    std::size_t imageCount = 0; ///< how many are stored
    FrameStep step;             ///< its number, and what lies between it and the frame before
    /// Frames that the stream's queue dropped since the frame before; what was missing between
    /// them is in the step.
    std::uint32_t dropped = 0;
    /// When it was grabbed and unpacked, on CLOCK_MONOTONIC.
    std::chrono::steady_clock::time_point arrival;
    FrameTimes times;
    std::chrono::nanoseconds wait{};      ///< from asking the driver for it to its arrival
    std::chrono::microseconds exposure{}; ///< that was set when it arrived
    std::uint32_t gain = 0;               ///< that was set when it arrived
    std::shared_ptr<const void> memory;   ///< of the images

    [[nodiscard]] std::span<const Image> images() const
    {
        return std::span(stored).first(imageCount);
    }
    /// Of all its images.
    [[nodiscard]] std::uint64_t bytes() const;
    /// The image with this letter; null when the frame has none.
    [[nodiscard]] const Image* image(char letter) const;
};

/// Letter of the image at @p position of a grab that gave @p count images: 'A' or 'B'. A single
/// image is A, except for a camera that reports one sensor: it is the B of a frame whose A is a
/// marker and no picture.
///
/// @param sensorCount value of the SensorCount property
char imageLetter(int position, int count, int sensorCount);

} // namespace zrn
