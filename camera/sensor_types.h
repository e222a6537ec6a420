#pragma once

#include "exposure_units.h"
#include "frame_unpacking.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>

namespace CameraSpace
{
enum class PixelFormatType : std::uint32_t;
}

/// What follows from a sensor type.
struct SensorType {
    int number; ///< as the camera reports it. UVC: Contrast
    FrameLayout layout;
    ExposureStep exposureStep;
    bool hasReset;
    bool marksImageA; ///< image A may be no picture but a marker, which hosts do not get
    int sensorCount;  ///< what the property SensorCount answers, however many images arrive
};

/// The sensor types that cameras report, lowest number first.
inline constexpr auto sensorTypes = std::to_array<SensorType>({
    // clang-format off
    //   layout                           exposure step             reset  marks  count
    {0,  FrameLayout::InterleavedShifted, ExposureStep::Hundred,    false, false, 2},
    {1,  FrameLayout::Interleaved,        ExposureStep::Fractional, false, false, 2},
    {2,  FrameLayout::ReversedQuads,      ExposureStep::One,        true,  false, 2},
    {3,  FrameLayout::ReversedQuads,      ExposureStep::One,        true,  false, 2},
    {4,  FrameLayout::Interleaved,        ExposureStep::One,        true,  false, 2},
    {5,  FrameLayout::Single,             ExposureStep::Fractional, true,  false, 2},
    {6,  FrameLayout::ReversedQuads,      ExposureStep::One,        true,  true,  1},
    {7,  FrameLayout::BothEnds,           ExposureStep::One,        true,  false, 2},
    {8,  FrameLayout::ReversedQuads,      ExposureStep::One,        true,  false, 2},
    {10, FrameLayout::ReversedQuads,      ExposureStep::One,        true,  false, 2},
    {11, FrameLayout::ReversedQuads,      ExposureStep::One,        true,  false, 2},
    {12, FrameLayout::BothEndsMirrored,   ExposureStep::One,        true,  false, 2},
    {13, FrameLayout::Strips,             ExposureStep::One,        true,  false, 2},
    {14, FrameLayout::Interleaved,        ExposureStep::One,        true,  false, 2},
    {15, FrameLayout::ReversedQuads,      ExposureStep::Hundred,    true,  false, 2},
    // clang-format on
});
static_assert(std::ranges::adjacent_find(sensorTypes, std::greater_equal(), &SensorType::number) ==
              sensorTypes.end());

/// Before a camera is connected, and for every number without a row.
inline constexpr SensorType unknownSensorType = {
    -1, FrameLayout::Interleaved, ExposureStep::One, true, false, 2};

constexpr const SensorType& sensorTypeOf(int number)
{
    const auto* row = std::ranges::find(sensorTypes, number, &SensorType::number);
    return row == sensorTypes.end() ? unknownSensorType : *row;
}

/// The number of the type that a camera is of which reports @p contrast: those that no row has
/// count as type 0.
constexpr int reportedSensorType(std::uint16_t contrast)
{
    return sensorTypeOf(contrast).number == contrast ? contrast : 0;
}

/// Two sensors side by side, which do not report their type: they are known by the size of their
/// camera's first frame.
struct DoubleSensor {
    int width; ///< of the first frame
    int height;
    int streamedWidth;
    int streamedHeight;
    CameraSpace::PixelFormatType format;
    int sensorType;
};

/// The double sensor whose camera has this first frame, or null.
const DoubleSensor* findDoubleSensor(int width, int height);
