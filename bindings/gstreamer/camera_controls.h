#pragma once

#include "client/camera.h"

#include <array>
#include <cstddef>

namespace zrngst
{

/// A setting of the camera that is a property of the element.
struct Control {
    const char* name;
    const char* nick;
    const char* blurb;
    int minimum;
    int maximum;
    bool isLive; ///< may be set while the camera streams
    void (*write)(zrn::Camera& camera, int value);
    int (*read)(zrn::Camera& camera);
};

inline constexpr std::size_t controlCount = 7;

/// Value of a control that the user leaves as the camera has it.
inline constexpr int untouched = -1;

const std::array<Control, controlCount>& controls();

constexpr std::array<int, controlCount> allUntouched()
{
    std::array<int, controlCount> values{};
    values.fill(untouched);
    return values;
}

/// Writes those that the user has set. @throws zrn::Error
void writeAll(zrn::Camera& camera, const std::array<int, controlCount>& values);

} // namespace zrngst
