#include "pictures/frame_header.h"

#include "pictures/row_alignment.h"
#include "pictures/sensor_types.h"

#include <algorithm>
#include <array>

namespace zrnsim
{

namespace
{

constexpr std::size_t kNumberOffset = 2;
constexpr std::size_t kNumberBytes = 4;

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

RowAlignment alignmentOf(const FrameRequest& request, int image)
{
    // Pixel 2 of image A is frame byte 4, that of image B frame byte 5.
    const std::uint8_t pixel2 = numberByte(request.frameNumber, image == 0 ? 2 : 3);
    return rowAlignmentOf(request.frameNumber, image, pixel2, request.width);
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

std::uint64_t trailerOf(const FrameRequest& request)
{
    std::uint64_t trailer = 0;
    for (std::size_t i = 0; i < kNumberBytes && kNumberOffset + i < frameBytes(request); ++i) {
        const auto byte = static_cast<std::int8_t>(numberByte(request.frameNumber, i));
        trailer |= static_cast<std::uint64_t>(std::int64_t{byte}) << (8 * i);
    }
    return trailer;
}

bool isMarkerFrame(const FrameRequest& request)
{
    return voidMarkOf(request) != 0;
}

} // namespace zrnsim
