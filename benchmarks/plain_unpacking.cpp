#include "plain_unpacking.h"

#include "row_alignment.h"

#include <array>
#include <cstddef>
#include <utility>

namespace
{

struct Planes {
    const unsigned char* s;
    std::size_t width;
    std::size_t height;
    unsigned char* a;
    unsigned char* b;
};

void interleaved(const Planes& p)
{
    for (std::size_t i = 0; i < p.width * p.height; ++i) {
        p.a[i] = p.s[2 * i];
        p.b[i] = p.s[2 * i + 1];
    }
}

void reversedQuads(const Planes& p)
{
    for (std::size_t i = 0; i < p.width * p.height; i += 4) {
        for (std::size_t n = 0; n < 4; ++n) {
            p.a[i + n] = p.s[2 * i + 3 - n];
            p.b[i + n] = p.s[2 * i + 7 - n];
        }
    }
}

void bothEnds(const Planes& p)
{
    for (std::size_t y = 0; y < p.height; ++y) {
        const std::size_t left = y * p.width;
        const std::size_t right = left + p.width - 1;
        for (std::size_t k = 0; 4 * k < p.width; ++k) {
            const unsigned char* group = p.s + 2 * left + 8 * k;
            p.a[left + 2 * k] = group[0];
            p.a[right - 2 * k] = group[1];
            p.a[left + 2 * k + 1] = group[2];
            p.a[right - 2 * k - 1] = group[3];
            p.b[left + 2 * k] = group[4];
            p.b[right - 2 * k] = group[5];
            p.b[left + 2 * k + 1] = group[6];
            p.b[right - 2 * k - 1] = group[7];
        }
    }
}

void mirrorRightHalf(const Planes& p, unsigned char* image)
{
    for (std::size_t y = 0; y < p.height; ++y) {
        unsigned char* row = image + y * p.width;
        for (std::size_t j = 0; j < p.width / 4; ++j) {
            std::swap(row[p.width / 2 + j], row[p.width - 1 - j]);
        }
    }
}

void strips(const Planes& p)
{
    constexpr std::array<std::size_t, 4> strip = {0, 320, 640, 960};
    for (std::size_t k = 0; k < 2 * p.width * p.height; ++k) {
        const std::size_t row = k / (2 * p.width);
        const std::size_t column = (k - row * 2 * p.width) >> 3;
        unsigned char* image = (k & 4) == 0 ? p.a : p.b;
        image[strip[k & 3] + p.width * row + column] = p.s[k];
    }
}

} // namespace

const char* layoutName(FrameLayout layout)
{
    switch (layout) {
    case FrameLayout::Interleaved:
        return "interleaved";
    case FrameLayout::InterleavedShifted:
        return "interleaved, rows moved";
    case FrameLayout::ReversedQuads:
        return "reversed groups of four";
    case FrameLayout::Single:
        return "single image";
    case FrameLayout::BothEnds:
        return "from both ends";
    case FrameLayout::BothEndsMirrored:
        return "both ends, mirrored";
    case FrameLayout::Strips:
        return "four strips";
    }
    return "";
}

void unpackPlainly(FrameLayout layout, const unsigned char* frame, int width, int height,
                   unsigned char* imageA, unsigned char* imageB)
{
    const Planes planes{frame, static_cast<std::size_t>(width), static_cast<std::size_t>(height),
                        imageA, imageB};
    const std::size_t pixels = planes.width * planes.height;
    switch (layout) {
    case FrameLayout::Interleaved:
        interleaved(planes);
        break;
    case FrameLayout::InterleavedShifted:
        interleaved(planes);
        realignRows({imageA, pixels}, width, height);
        realignRows({imageB, pixels}, width, height);
        break;
    case FrameLayout::ReversedQuads:
        reversedQuads(planes);
        break;
    case FrameLayout::Single:
        for (std::size_t i = 0; i < pixels; ++i) {
            imageA[i] = frame[i];
        }
        break;
    case FrameLayout::BothEnds:
        bothEnds(planes);
        break;
    case FrameLayout::BothEndsMirrored:
        bothEnds(planes);
        mirrorRightHalf(planes, imageA);
        mirrorRightHalf(planes, imageB);
        break;
    case FrameLayout::Strips:
        strips(planes);
        break;
    }
}
