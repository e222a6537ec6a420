#pragma once

#include "fake_uvc.h"
#include "zrn_camera.h"

#include <cstddef>
#include <cstdint>
#include <vector>

struct Geometry {
    int width;
    int height;

    [[nodiscard]] std::size_t frameSize() const
    {
        return 2 * static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    }
};

inline constexpr Geometry usualGeometry{1280, 1024};

/// Cameras on the tests' stand-in for libuvc, enumerated: the driver without a bus.
class Bus
{
public:
    explicit Bus(int cameras = 1, Geometry geometry = usualGeometry);
    ~Bus();
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;
};

/// A camera of the bus that streams, and the frame that it delivers.
class Stream
{
public:
    explicit Stream(int index = 0, Geometry geometry = usualGeometry);
    ~Stream();
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    /// How many frame numbers there are.
    static constexpr std::size_t numbers = std::size_t{128} * 128;

    [[nodiscard]] bool started() const { return m_started; }
    CZRNCamera& camera() { return m_camera; }
    /// Notes the times of the next frames' payloads, as who sees them does.
    void arrive(std::uint32_t frames) const;
    /// Calls the frame callback. @param number which the frame's header tells, below numbers.
    void deliver(std::size_t number = 0);
    /// The number of the frame that an image comes from.
    static std::size_t numberOf(const CameraSpace::ImageBlock& image);

private:
    CZRNCamera m_camera;
    std::vector<unsigned char> m_bytes;
    uvc_frame m_frame{};
    bool m_started = false;
};
