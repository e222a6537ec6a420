#include "frame_unpacking.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace
{

/// One packed frame and the two images that it holds.
struct Unpacking {
    const unsigned char* frame;
    std::size_t width;
    std::size_t height;
    std::array<unsigned char*, 2> images;

    [[nodiscard]] std::size_t pixels() const { return width * height; }
    [[nodiscard]] std::size_t bytes() const { return 2 * pixels(); }

    void clear() const
    {
        for (unsigned char* image : images) {
            std::memset(image, 0, pixels());
        }
    }
};

void unpackInterleaved(const Unpacking& u)
{
    unsigned char* a = u.images[0];
    unsigned char* b = u.images[1];
    for (std::size_t i = 0; i < u.pixels(); ++i) {
        a[i] = u.frame[2 * i];
        b[i] = u.frame[2 * i + 1];
    }
}

void unpackReversedQuads(const Unpacking& u)
{
    constexpr std::size_t quad = 4;
    const std::size_t whole = u.pixels() / quad * quad;
    for (std::size_t i = 0; i < whole; i += quad) {
        const unsigned char* group = u.frame + 2 * i;
        std::reverse_copy(group, group + quad, u.images[0] + i);
        std::reverse_copy(group + quad, group + 2 * quad, u.images[1] + i);
    }
    for (unsigned char* image : u.images) {
        std::fill(image + whole, image + u.pixels(), static_cast<unsigned char>(0));
    }
}

void unpackBothEnds(const Unpacking& u)
{
    constexpr std::size_t group = 8;
    u.clear();
    for (std::size_t y = 0; y < u.height; ++y) {
        const std::size_t base = y * u.width;
        for (std::size_t k = 0; group * k < 2 * u.width; ++k) {
            // Where a row is too short for the last group, these may lie in a neighbouring row or,
            // as huge numbers, before the image.
            const std::array<std::size_t, 4> targets = {base + 2 * k, base + u.width - 1 - 2 * k,
                                                        base + 2 * k + 1,
                                                        base + u.width - 2 - 2 * k};
            const std::size_t source = 2 * base + group * k;
            for (std::size_t n = 0; n < group; ++n) {
                const std::size_t target = targets[n % targets.size()];
                if (target < u.pixels() && source + n < u.bytes()) {
                    u.images[n / targets.size()][target] = u.frame[source + n];
                }
            }
        }
    }
}

void mirrorRightHalves(const Unpacking& u)
{
    for (unsigned char* image : u.images) {
        for (std::size_t y = 0; y < u.height; ++y) {
            unsigned char* row = image + y * u.width;
            for (std::size_t j = 0; j < u.width / 4; ++j) {
                std::swap(row[u.width / 2 + j], row[u.width - 1 - j]);
            }
        }
    }
}

void unpackStrips(const Unpacking& u)
{
    // The sensor's own strip distance, whatever part of it is read out.
    constexpr std::array<std::size_t, 4> strips = {0, 320, 640, 960};
    u.clear();
    for (std::size_t k = 0; k < u.bytes(); ++k) {
        const std::size_t row = k / (2 * u.width);
        const std::size_t column = (k - row * 2 * u.width) / 8;
        const std::size_t target = strips[k % 4] + u.width * row + column;
        if (target < u.pixels()) {
            u.images[k / 4 % 2][target] = u.frame[k];
        }
    }
}

} // namespace

FrameLayout layoutOf(int sensorType)
{
    switch (sensorType) {
    case 0:
        return FrameLayout::InterleavedShifted;
    case 2:
    case 3:
    case 6:
    case 8:
    case 10:
    case 11:
    case 15:
        return FrameLayout::ReversedQuads;
    case 5:
        return FrameLayout::Single;
    case 7:
        return FrameLayout::BothEnds;
    case 12:
        return FrameLayout::BothEndsMirrored;
    case 13:
        return FrameLayout::Strips;
    default:
        return FrameLayout::Interleaved;
    }
}

std::size_t packedSize(FrameLayout layout, int width, int height)
{
    const std::size_t pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    return layout == FrameLayout::Single ? pixels : 2 * pixels;
}

void unpackFrame(FrameLayout layout, const unsigned char* frame, int width, int height,
                 unsigned char* imageA, unsigned char* imageB)
{
    const Unpacking unpacking{
        frame, static_cast<std::size_t>(width), static_cast<std::size_t>(height), {imageA, imageB}};
    switch (layout) {
    case FrameLayout::Interleaved:
    case FrameLayout::InterleavedShifted:
        unpackInterleaved(unpacking);
        break;
    case FrameLayout::ReversedQuads:
        unpackReversedQuads(unpacking);
        break;
    case FrameLayout::Single:
        std::memcpy(imageA, frame, unpacking.pixels());
        break;
    case FrameLayout::BothEnds:
        unpackBothEnds(unpacking);
        break;
    case FrameLayout::BothEndsMirrored:
        unpackBothEnds(unpacking);
        if (width >= 4) {
            mirrorRightHalves(unpacking);
        }
        break;
    case FrameLayout::Strips:
        unpackStrips(unpacking);
        break;
    }
}
