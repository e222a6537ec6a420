#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

namespace soak
{

/// Sees each frame that libuvc hands to the driver, before the driver does.
using FrameObserver = std::function<void(std::span<const std::uint8_t> frame)>;

/// Watches the streams that the driver starts for a camera object. This program defines
/// uvc_start_streaming in front of libuvc's, for no other point lies between libuvc and the driver.
/// Replaces an earlier observer, while the camera does not stream. Thread-safe.
void watchStream(const void* camera, FrameObserver observer);

/// Forgets a camera object that has been deleted. Thread-safe.
void unwatchStream(const void* camera);

} // namespace soak
