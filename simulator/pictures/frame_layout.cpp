#include "pictures/frame_layout.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <utility>
#include <vector>

namespace zrnsim
{

namespace
{

constexpr std::size_t kGroup = 8; // bytes: four pixels of A, four of B
constexpr std::size_t kStripDistance = 320;

/// Calls visit(offset in the frame, image, index) for each byte, in the order in which a host
/// writes the pixels. The index may lie outside the image.
template <typename Visitor>
void visitBothEnds(const ImageSize& size, Visitor visit)
{
    const std::size_t rowBytes = 2 * size.width;
    for (std::size_t y = 0; y < size.height; ++y) {
        const std::size_t first = y * size.width;
        const std::size_t last = first + size.width - 1;
        // The last group of a row that is no multiple of four pixels wide reaches into the next
        // row.
        for (std::size_t start = 0; start < rowBytes; start += kGroup) {
            const std::size_t inward = start / 4;
            const std::size_t offset = y * rowBytes + start;
            for (int image = 0; image < 2; ++image) {
                const std::size_t at = offset + (image == 0 ? 0 : kGroup / 2);
                visit(at, image, first + inward);
                visit(at + 1, image, last - inward);
                visit(at + 2, image, first + inward + 1);
                visit(at + 3, image, last - inward - 1);
            }
        }
    }
}

/// Likewise; pixels behind the last whole group are not sent.
template <typename Visitor>
void visitQuads(const ImageSize& size, Visitor visit)
{
    for (std::size_t i = 0; i < size.pixels() / 4 * 4; ++i) {
        const std::size_t offset = i / 4 * kGroup + 3 - i % 4;
        visit(offset, 0, i);
        visit(offset + kGroup / 2, 1, i);
    }
}

/// Likewise; groups of bytes count through the whole frame, positions within a strip row by row.
template <typename Visitor>
void visitStrips(const ImageSize& size, Visitor visit)
{
    const std::size_t rowBytes = 2 * size.width;
    for (std::size_t y = 0; y < size.height; ++y) {
        for (std::size_t inRow = 0; inRow < rowBytes; ++inRow) {
            const std::size_t offset = y * rowBytes + inRow;
            visit(offset, (offset & 4) == 0 ? 0 : 1,
                  (offset & 3) * kStripDistance + y * size.width + inRow / kGroup);
        }
    }
}

template <typename Visitor>
void visitPlaces(FrameLayout layout, const ImageSize& size, Visitor visit)
{
    const auto visitInside = [&](std::size_t offset, int image, std::size_t index) {
        if (offset < 2 * size.pixels() && index < size.pixels()) {
            visit(offset, image, index);
        }
    };
    switch (layout) {
    case FrameLayout::BothEnds:
    case FrameLayout::BothEndsMirrored:
        visitBothEnds(size, visitInside);
        break;
    case FrameLayout::ReversedQuads:
        visitQuads(size, visitInside);
        break;
    case FrameLayout::Strips:
        visitStrips(size, visitInside);
        break;
    case FrameLayout::Interleaved:
    case FrameLayout::InterleavedShifted:
    case FrameLayout::Single: // lossless at every size
        break;
    }
}

void mirrorRightHalves(const ImageSize& size, std::uint8_t* image)
{
    const std::size_t reach = size.width / 4;
    for (std::size_t y = 0; y < size.height; ++y) {
        std::uint8_t* row = image + y * size.width;
        for (std::size_t j = 0; j < reach; ++j) {
            std::swap(row[size.width / 2 + j], row[size.width - 1 - j]);
        }
    }
}

void packInterleaved(const ImageSize& size, const std::uint8_t* imageA, const std::uint8_t* imageB,
                     std::uint8_t* frame)
{
    const std::size_t pixels = size.pixels();
    for (std::size_t i = 0; i < pixels; ++i) {
        frame[2 * i] = imageA[i];
        frame[2 * i + 1] = imageB[i];
    }
}

/// Four pixels in reverse order; compilers make one byte swap of it.
std::uint32_t reversedQuad(const std::uint8_t* pixels)
{
    std::uint32_t quad = 0;
    std::memcpy(&quad, pixels, sizeof quad);
    return quad << 24 | (quad << 8 & 0x00FF0000) | (quad >> 8 & 0x0000FF00) | quad >> 24;
}

void packReversedQuads(const ImageSize& size, const std::uint8_t* imageA,
                       const std::uint8_t* imageB, std::uint8_t* frame)
{
    const std::size_t groups = size.pixels() / 4;
    for (std::size_t g = 0; g < groups; ++g) {
        const std::array<std::uint32_t, 2> group = {reversedQuad(imageA + 4 * g),
                                                    reversedQuad(imageB + 4 * g)};
        std::memcpy(frame + kGroup * g, group.data(), kGroup);
    }
    std::fill(frame + kGroup * groups, frame + 2 * size.pixels(), std::uint8_t{0});
}

/// Where a lossless layout takes the four pixels of an image from that go into a group of a row:
/// lane i of group k is pixel start[i] + k * step[i].
struct Lanes {
    std::array<std::size_t, 4> start;
    std::array<std::ptrdiff_t, 4> step;
};

Lanes lanesOf(FrameLayout layout, std::size_t width)
{
    switch (layout) {
    case FrameLayout::BothEnds:
        return {{0, width - 1, 1, width - 2}, {2, -2, 2, -2}};
    case FrameLayout::BothEndsMirrored: // read backwards, the right half begins in the middle
        return {{0, width / 2, 1, width / 2 + 1}, {2, 2, 2, 2}};
    case FrameLayout::ReversedQuads:
        return {{3, 2, 1, 0}, {4, 4, 4, 4}};
    case FrameLayout::Strips:
        return {{0, kStripDistance, 2 * kStripDistance, 3 * kStripDistance}, {1, 1, 1, 1}};
    case FrameLayout::Interleaved:
    case FrameLayout::InterleavedShifted:
    case FrameLayout::Single: // which have no groups
        break;
    }
    return {};
}

void packLanes(const Lanes& lanes, const ImageSize& size, const std::uint8_t* imageA,
               const std::uint8_t* imageB, std::uint8_t* frame)
{
    const std::size_t groups = size.width / 4;
    for (std::size_t y = 0; y < size.height; ++y) {
        const std::uint8_t* a = imageA + y * size.width;
        const std::uint8_t* b = imageB + y * size.width;
        std::uint8_t* row = frame + 2 * y * size.width;
        for (std::size_t lane = 0; lane < lanes.start.size(); ++lane) {
            const auto start = static_cast<std::ptrdiff_t>(lanes.start[lane]);
            for (std::size_t k = 0; k < groups; ++k) {
                const std::ptrdiff_t x = start + static_cast<std::ptrdiff_t>(k) * lanes.step[lane];
                row[kGroup * k + lane] = a[x];
                row[kGroup * k + lane + kGroup / 2] = b[x];
            }
        }
    }
}

/// The slow way, for sizes that do not suit the layout.
void packByPlaces(FrameLayout layout, const ImageSize& size, const std::uint8_t* imageA,
                  const std::uint8_t* imageB, std::uint8_t* frame)
{
    std::vector<std::uint8_t> a(imageA, imageA + size.pixels());
    std::vector<std::uint8_t> b(imageB, imageB + size.pixels());
    if (layout == FrameLayout::BothEndsMirrored) {
        mirrorRightHalves(size, a.data());
        mirrorRightHalves(size, b.data());
    }
    std::fill(frame, frame + 2 * size.pixels(), std::uint8_t{0});
    visitPlaces(layout, size, [&](std::size_t offset, int image, std::size_t index) {
        frame[offset] = (image == 0 ? a : b)[index];
    });
}

} // namespace

std::size_t packedSize(FrameLayout layout, const ImageSize& size)
{
    return layout == FrameLayout::Single ? size.pixels() : 2 * size.pixels();
}

bool isLossless(FrameLayout layout, const ImageSize& size)
{
    switch (layout) {
    case FrameLayout::ReversedQuads:
        return size.pixels() % 4 == 0;
    case FrameLayout::BothEnds:
    case FrameLayout::BothEndsMirrored:
        return size.width % 4 == 0;
    case FrameLayout::Strips:
        return size.width == 4 * kStripDistance;
    case FrameLayout::Interleaved:
    case FrameLayout::InterleavedShifted:
    case FrameLayout::Single:
        break;
    }
    return true;
}

void packFrame(FrameLayout layout, const ImageSize& size, const std::uint8_t* imageA,
               const std::uint8_t* imageB, std::uint8_t* frame)
{
    switch (layout) {
    case FrameLayout::Interleaved:
    case FrameLayout::InterleavedShifted:
        packInterleaved(size, imageA, imageB, frame);
        break;
    case FrameLayout::ReversedQuads:
        packReversedQuads(size, imageA, imageB, frame);
        break;
    case FrameLayout::Single:
        std::copy(imageA, imageA + size.pixels(), frame);
        break;
    case FrameLayout::BothEnds:
    case FrameLayout::BothEndsMirrored:
    case FrameLayout::Strips:
        if (isLossless(layout, size)) {
            packLanes(lanesOf(layout, size.width), size, imageA, imageB, frame);
        } else {
            packByPlaces(layout, size, imageA, imageB, frame);
        }
        break;
    }
}

void scatterFrame(FrameLayout layout, const ImageSize& size, const std::uint8_t* frame,
                  std::uint8_t* imageA, std::uint8_t* imageB)
{
    const std::array<std::uint8_t*, 2> images = {imageA, imageB};
    for (std::uint8_t* image : images) {
        std::fill(image, image + size.pixels(), std::uint8_t{0});
    }
    visitPlaces(layout, size, [&](std::size_t offset, int image, std::size_t index) {
        images[static_cast<std::size_t>(image)][index] = frame[offset];
    });
    if (layout == FrameLayout::BothEndsMirrored) {
        mirrorRightHalves(size, imageA);
        mirrorRightHalves(size, imageB);
    }
}

PixelPlace pixelOf(FrameLayout layout, const ImageSize& size, std::size_t offset)
{
    switch (layout) {
    case FrameLayout::Single:
        return {0, offset};
    case FrameLayout::Interleaved:
    case FrameLayout::InterleavedShifted:
        return {static_cast<int>(offset % 2), offset / 2};
    case FrameLayout::ReversedQuads:
    case FrameLayout::BothEnds:
    case FrameLayout::BothEndsMirrored:
    case FrameLayout::Strips:
        break;
    }
    return {offset < kGroup / 2 ? 0 : 1, lanesOf(layout, size.width).start[offset % 4]};
}

} // namespace zrnsim
