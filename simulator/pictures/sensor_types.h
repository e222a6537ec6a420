#pragma once

#include "pictures/frame_layout.h"

#include <algorithm>
#include <array>

namespace zrnsim
{

/// The sensors of a camera, and what a host makes of them. Drivers have a table of their own, and
/// neither is made from the other: tests compare what a driver does with this one.
struct SensorType {
    int number;
    FrameLayout layout;
    double exposureStep; ///< microseconds
    int exposureMax;     ///< in such steps
    bool hasReset;       ///< hosts reset it
    bool sendsMarkers;   ///< some frames carry a mark by which image A is void
    int sensorCount;     ///< as hosts tell it
    bool isKnown;        ///< else hosts take it for type 0
    const char* summary; ///< for the list of models
};

/// Lowest number first.
inline constexpr auto sensorTypes = std::to_array<SensorType>({
    // clang-format off
    //   layout                           step   max    reset  marks  n  known
    {0,  FrameLayout::InterleavedShifted, 100,   5000,  false, false, 2, true, "interleaved, rows may arrive shifted, exposure in 100 us"},
    {1,  FrameLayout::Interleaved,        22.22, 4500,  false, false, 2, true, "interleaved, exposure in 22.22 us lines"},
    {2,  FrameLayout::ReversedQuads,      1,     30000, true,  false, 2, true, "byte-reversed groups of four"},
    {3,  FrameLayout::ReversedQuads,      1,     30000, true,  false, 2, true, "byte-reversed groups of four"},
    {4,  FrameLayout::Interleaved,        1,     30000, true,  false, 2, true, "interleaved"},
    {5,  FrameLayout::Single,             22.22, 4500,  true,  false, 2, true, "single image in the first half of the frame, exposure in 22.22 us lines"},
    {6,  FrameLayout::ReversedQuads,      1,     30000, true,  true,  1, true, "byte-reversed groups of four, marker frames carry image B only"},
    {7,  FrameLayout::BothEnds,           1,     30000, true,  false, 2, true, "rows filled from both ends"},
    {8,  FrameLayout::ReversedQuads,      1,     30000, true,  false, 2, true, "byte-reversed groups of four"},
    {9,  FrameLayout::Interleaved,        1,     30000, true,  false, 2, false, "type that hosts treat as 0: interleaved"},
    {10, FrameLayout::ReversedQuads,      1,     30000, true,  false, 2, true, "byte-reversed groups of four"},
    {11, FrameLayout::ReversedQuads,      1,     30000, true,  false, 2, true, "byte-reversed groups of four"},
    {12, FrameLayout::BothEndsMirrored,   1,     30000, true,  false, 2, true, "rows filled from both ends, right half mirrored"},
    {13, FrameLayout::Strips,             1,     30000, true,  false, 2, true, "four strips of 320 columns"},
    {14, FrameLayout::Interleaved,        1,     30000, true,  false, 2, true, "interleaved"},
    {15, FrameLayout::ReversedQuads,      100,   5000,  true,  false, 2, true, "byte-reversed groups of four, exposure in 100 us"},
    // clang-format on
});

/// Numbers without a row have the one of type 9.
constexpr const SensorType& sensorTypeOf(int number)
{
    constexpr int unknown = 9;
    const auto* row = std::ranges::find(sensorTypes, number, &SensorType::number);
    return row == sensorTypes.end() ? sensorTypeOf(unknown) : *row;
}

static_assert(!sensorTypeOf(-1).isKnown);

/// The type that hosts take a camera for which reports a number.
constexpr int receivedSensorType(int reported)
{
    return sensorTypeOf(reported).isKnown ? reported : 0;
}

} // namespace zrnsim
