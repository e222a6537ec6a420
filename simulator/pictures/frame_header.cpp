#include "pictures/frame_header.h"

#include "pictures/sensor_types.h"

#include <algorithm>
#include <array>

namespace zrnsim
{

namespace
{

constexpr std::size_t kNumberOffset = 2;
constexpr std::size_t kNumberBytes = 4;

/// By how much rows are shifted stands in the first row, in pixels 2 to 7 of each image.
struct RowAlignment {
    int shift;
    /// Pixels 3 to 7 of the first row. Pixel 2 holds a byte of the frame number.
    std::array<std::uint8_t, 5> header;
};
constexpr std::size_t kAlignmentHeaderStart = 3; // pixel of RowAlignment::header[0]

constexpr std::uint8_t kEarly = 0x30;
constexpr std::uint8_t kLate = 0x3A;
constexpr int kNarrowestShifted = 8; // narrower images are sent with their rows in place

// The place of the mark within pixels 2 to 7 tells the shift.
constexpr std::array<RowAlignment, 7> kCycle = {{
    {1, {kEarly, 16, 55, 89, 0}},
    {0, {16, 55, 89, 0, 90}}, // pixel 2 may make another one of this
    {2, {16, kEarly, 55, 89, 0}},
    {-1, {kLate, 16, 55, 89, 0}},
    {3, {16, 55, kEarly, 89, 0}},
    {0, {16, kLate, 55, 89, 0}},
    {0, {16, 55, 89, kEarly, 90}}, // this late a mark means rows in place
}};
constexpr std::size_t kUnmarked = 1;
constexpr std::size_t kMarkedInPlace = 6;

/// With the mark in pixel 2, and none behind it.
constexpr RowAlignment kLatest = {-2, {16, 55, 89, 0, 90}};

/// With pixel 2 as here, the whole header is the one by which cameras announce rows in place.
constexpr std::uint8_t kInPlacePixel2 = 48;
constexpr RowAlignment kInPlace = {0, {165, 58, 90, 0, 90}};

std::uint8_t numberByte(std::uint32_t frameNumber, std::size_t i)
{
    return static_cast<std::uint8_t>(frameNumber >> (8 * i));
}

std::size_t frameBytes(const FrameRequest& request)
{
    return static_cast<std::size_t>(std::max(request.width, 0)) *
           static_cast<std::size_t>(std::max(request.height, 0)) *
           static_cast<std::size_t>(std::max(request.bytesPerPosition, 0));
}

/// The other half of the mark that begins with a byte of the frame number, or 0 without one.
std::uint8_t markBehind(std::uint8_t numberByte)
{
    switch (numberByte) {
    case 0x55:
        return 0xAA;
    case 0x33:
        return 0xCC;
    default:
        return 0;
    }
}

/// The second half of the void mark of a frame, or 0 when image A is valid.
std::uint8_t voidMarkOf(const FrameRequest& request)
{
    constexpr std::size_t groupBytes = 8;
    if (!sensorTypeOf(request.sensorType).sendsMarkers || request.bytesPerPosition < 2 ||
        frameBytes(request) < groupBytes) {
        return 0;
    }
    const std::uint8_t mark = markBehind(numberByte(request.frameNumber, 0));
    if (mark != 0) {
        return mark;
    }
    // The second byte stays the same for 256 frames, of which most shall be valid.
    return request.frameNumber % 8 == 0 ? markBehind(numberByte(request.frameNumber, 1)) : 0;
}

/// Goes through all alignments that occur, frame by frame, and is another one for image B than for
/// image A.
RowAlignment alignmentOf(const FrameRequest& request, int image)
{
    if (request.width < kNarrowestShifted) {
        return kCycle[kMarkedInPlace];
    }
    const std::size_t turn =
        (std::size_t{request.frameNumber} + (image == 0 ? 0 : 3)) % kCycle.size();
    // Pixel 2 of image A is frame byte 4, that of image B frame byte 5.
    const std::uint8_t pixel2 = numberByte(request.frameNumber, image == 0 ? 2 : 3);
    if (turn == kUnmarked && pixel2 == kLate) {
        return kLatest;
    }
    if (turn == kUnmarked && pixel2 == kInPlacePixel2) {
        return kInPlace;
    }
    return kCycle[turn];
}

bool hasShiftedRows(const FrameRequest& request)
{
    return sensorTypeOf(request.sensorType).layout == FrameLayout::InterleavedShifted &&
           request.bytesPerPosition >= 2;
}

} // namespace

std::vector<HeaderByte> headerOf(const FrameRequest& request)
{
    std::vector<HeaderByte> header;
    for (std::size_t i = 0; i < kNumberBytes; ++i) {
        header.push_back({kNumberOffset + i, numberByte(request.frameNumber, i)});
    }
    if (sensorTypeOf(request.sensorType).sendsMarkers) {
        // Always written, so that no picture gives a valid frame the mark by chance.
        const std::uint8_t mark = voidMarkOf(request);
        header.push_back({request.frameNumber / 256 % 2, mark});
        header.push_back({1 - request.frameNumber / 256 % 2, 0});
    }
    if (hasShiftedRows(request)) {
        for (int image = 0; image < 2; ++image) {
            const RowAlignment alignment = alignmentOf(request, image);
            for (std::size_t i = 0; i < alignment.header.size(); ++i) {
                const std::size_t pixel = kAlignmentHeaderStart + i;
                header.push_back(
                    {2 * pixel + static_cast<std::size_t>(image), alignment.header[i]});
            }
        }
    }
    return header;
}

int rowShiftOf(const FrameRequest& request, int image)
{
    return hasShiftedRows(request) ? alignmentOf(request, image).shift : 0;
}

} // namespace zrnsim
