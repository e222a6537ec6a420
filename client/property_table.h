#pragma once

#include "client/property_keys.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <limits>
#include <string_view>

namespace zrn
{

enum class PropertyType { Int, UInt, Bool, Double, Text, Record };

/// What a host knows about one property of the driver.
struct PropertyInfo {
    const char* key;
    const char* label; ///< its name for people, without a unit
    PropertyType type;
    bool writable;
    std::int64_t minimum; ///< of the values that a host may write; equal to maximum: no range
    std::int64_t maximum;
    const char* unit;    ///< empty when it has none
    const char* carrier; ///< UVC control of the camera behind it; empty: kept by the driver
    const char* tip;     ///< what it is, in one sentence without its full stop
};

/// Every property, by key. Programs, their completions and documents take them from here.
inline constexpr auto propertyTable = [] {
    using enum PropertyType;
    constexpr std::int64_t anyInt = std::numeric_limits<std::int32_t>::max();
    constexpr std::int64_t anyUnsigned = std::numeric_limits<std::uint32_t>::max();
    // clang-format off
    return std::array{
        PropertyInfo{keys::bGain, "B gain", Int, true, 0, 255, "", "Saturation",
                     "Gain of the blue cells"},
        PropertyInfo{keys::cacheFrameCount, "Cache", Int, true, 1, anyInt, "frames", "",
                     "Frames that the driver keeps for grabs; only while the stream is stopped"},
        PropertyInfo{keys::capturePeriod, "Capture period", UInt, true, 0, anyUnsigned, "", "",
                     "A number that the driver keeps for the host"},
        PropertyInfo{keys::enableCheckExposureTime, "Verify exposure", Bool, true, 0, 0, "", "",
                     "The driver reads the exposure back after writing it"},
        PropertyInfo{keys::enableCheckGain, "Verify gain", Bool, true, 0, 0, "", "",
                     "The driver reads the gain back after writing it"},
        PropertyInfo{keys::frameRate, "Frame rate", Double, false, 0, 0, "frames/s", "",
                     "Frame rate that the driver measures, over a second at least"},
        PropertyInfo{keys::gbGain, "GB gain", Int, true, 0, 255, "", "Hue",
                     "Gain of the green cells in blue rows"},
        PropertyInfo{keys::grGain, "GR gain", Int, true, 0, 255, "", "Sharpness",
                     "Gain of the green cells in red rows"},
        PropertyInfo{keys::gamma, "Gamma", Int, true, 0, 65535, "", "Gamma",
                     "The gamma control as a whole"},
        PropertyInfo{keys::heartBeat, "Status", Record, false, 0, 0, "", "Gain",
                     "Whether the camera answers (ONLINE), and its frame rate (FEAMERATE)"},
        PropertyInfo{keys::hue, "Hue", Int, true, -32768, 32767, "", "Hue",
                     "The hue control as a whole"},
        PropertyInfo{keys::maxGrabWaitTime, "Grab timeout", UInt, true, 0, anyUnsigned, "ms", "",
                     "How long a grab waits for a frame"},
        PropertyInfo{keys::rGain, "R gain", Int, true, 0, 255, "", "Gamma",
                     "Gain of the red cells"},
        PropertyInfo{keys::resolutionIndex, "Resolution", Int, true, 0, anyInt, "", "",
                     "Position of the image size in its format; writing always fails"},
        PropertyInfo{keys::resolutionList, "Resolutions", Record, false, 0, 0, "", "",
                     "Lists WIDTHS and HEIGHTS, empty; only for a camera without uncompressed sizes"},
        PropertyInfo{keys::sensorCount, "Sensors", Int, false, 0, 0, "", "Contrast",
                     "1 for sensor type 6, else 2"},
        PropertyInfo{keys::serial, "Serial", Text, false, 0, 0, "", "Backlight Compensation",
                     "ZR and a decimal number of 64 bits"},
        PropertyInfo{keys::sharp, "Sharpness", Int, true, 0, 65535, "", "Sharpness",
                     "The sharpness control as a whole"},
    };
    // clang-format on
}();

// Ascending, so that none stands there twice.
static_assert(std::ranges::adjacent_find(propertyTable, std::greater_equal<std::string_view>(),
                                         &PropertyInfo::key) == propertyTable.end());

/// The row of @p key, or null. Thread safety: reentrant.
constexpr const PropertyInfo* findProperty(std::string_view key)
{
    const auto* found = std::ranges::find(propertyTable, key, [](const PropertyInfo& property) {
        return std::string_view(property.key);
    });
    return found == propertyTable.end() ? nullptr : found;
}

} // namespace zrn
