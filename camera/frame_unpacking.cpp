#include "frame_unpacking.h"

#include "kernels/group_split.h"
#include "row_alignment.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <utility>

namespace
{

using kernels::GroupLayout;
using kernels::groupSize;

constexpr std::size_t groupPixels = 4; // of each image

/// One packed frame and the two images that it holds.
struct Unpacking {
    const unsigned char* frame;
    std::size_t width;
    std::size_t height;
    std::array<unsigned char*, 2> images;

    [[nodiscard]] std::size_t pixels() const { return width * height; }
    [[nodiscard]] std::size_t bytes() const { return 2 * pixels(); }

    /// Clears the pixels from @p begin to @p end of both images.
    void clear(std::size_t begin, std::size_t end) const
    {
        for (unsigned char* image : images) {
            std::memset(image + begin, 0, end - begin);
        }
    }
};

/// Splits @p pixels pairs of bytes.
void splitInterleaved(const unsigned char* source, std::size_t pixels, unsigned char* a,
                      unsigned char* b)
{
    const auto splitPairs = [&](std::size_t begin, std::size_t end) {
        for (std::size_t i = begin; i < end; ++i) {
            a[i] = source[2 * i];
            b[i] = source[2 * i + 1];
        }
    };
    // Kernels are slow where groups end at addresses that are no multiple of their size.
    const std::size_t head = std::min(pixels, -reinterpret_cast<std::uintptr_t>(a) % groupPixels);
    const std::size_t groups = (pixels - head) / groupPixels;
    splitPairs(0, head);
    kernels::split(GroupLayout::Interleaved, {source + 2 * head, groups}, {a + head, b + head});
    splitPairs(head + groups * groupPixels, pixels);
}

void unpackInterleaved(const Unpacking& u)
{
    splitInterleaved(u.frame, u.pixels(), u.images[0], u.images[1]);
}

/// An image of an interleaved frame whose rows are to be moved on the way.
class ShiftedImage
{
public:
    ShiftedImage(const Unpacking& unpacking, std::size_t image)
        : m_unpacking(unpacking)
        , m_image(image)
    {
        AlignmentHeader header{};
        for (std::size_t i = 0; i < header.size() && alignmentHeaderBegin + i < unpacking.pixels();
             ++i) {
            header[i] = packed(alignmentHeaderBegin + i);
        }
        m_shift = rowShift(header).value_or(RowShift{});
    }

    [[nodiscard]] std::ptrdiff_t shift() const { return m_shift.pixels; }

    /// Where a pixel of the frame belongs, provided that it stays inside the image.
    [[nodiscard]] unsigned char* target(std::size_t pixel) const
    {
        return m_unpacking.images[m_image] + static_cast<std::ptrdiff_t>(pixel) + shift();
    }

    /// Fills the columns from @p begin to @p end of the rows from pixel @p first to @p last.
    void fill(std::size_t first, std::size_t last, std::size_t begin, std::size_t end) const
    {
        if (begin >= end) {
            return;
        }
        // Copies, because the bytes that are written might change the originals.
        unsigned char* const image = m_unpacking.images[m_image];
        const unsigned char* const frame = m_unpacking.frame + m_image;
        const std::size_t width = m_unpacking.width;
        const auto pixelShift = static_cast<std::size_t>(shift());
        const bool acrossRows = m_shift.acrossRows;
        const std::size_t allBegin = firstMovedRow * width;
        const std::size_t allEnd = m_unpacking.pixels();
        for (std::size_t row = first; row < last; row += width) {
            const std::size_t runBegin = acrossRows ? allBegin : row;
            const std::size_t runLength = acrossRows ? allEnd - allBegin : width;
            for (std::size_t pixel = row + begin; pixel < row + end; ++pixel) {
                const std::size_t moved = pixel - pixelShift;
                // Before the run, the difference is a huge number.
                const bool covered = moved - runBegin < runLength;
                image[pixel] = frame[2 * (covered ? moved : pixel)];
            }
        }
    }

private:
    [[nodiscard]] unsigned char packed(std::size_t pixel) const
    {
        return m_unpacking.frame[2 * pixel + m_image];
    }

    const Unpacking& m_unpacking;
    std::size_t m_image;
    RowShift m_shift;
};

/// Unpacks and moves the rows in one pass: some rows at a time go as one run straight to where they
/// belong; then the few pixels are set right that the run carried across an end of their row.
void unpackShifted(const Unpacking& u)
{
    const std::size_t fixedPixels = std::min<std::size_t>(firstMovedRow, u.height) * u.width;
    splitInterleaved(u.frame, fixedPixels, u.images[0], u.images[1]);

    const std::array<ShiftedImage, 2> images = {ShiftedImage(u, 0), ShiftedImage(u, 1)};
    const auto [leftmost, rightmost] =
        std::minmax({std::ptrdiff_t{0}, images[0].shift(), images[1].shift()});
    const auto left = static_cast<std::size_t>(-leftmost);
    const auto right = static_cast<std::size_t>(rightmost);

    // As many rows as the fastest cache holds until their ends are set right.
    constexpr std::size_t cachedPixels = 8192;
    const std::size_t runLength = std::max<std::size_t>(4, cachedPixels / u.width) * u.width;
    for (std::size_t first = fixedPixels; first < u.pixels(); first += runLength) {
        const std::size_t last = std::min(first + runLength, u.pixels());
        // What stays inside the image and behind the rows above, in both images.
        const std::size_t begin = first + left;
        const std::size_t end = std::min(last + left, u.pixels() - std::min(right, u.pixels()));
        if (begin < end) {
            splitInterleaved(u.frame + 2 * begin, end - begin, images[0].target(begin),
                             images[1].target(begin));
        }
        for (const ShiftedImage& image : images) {
            const auto rowBegin = static_cast<std::size_t>(image.shift() - leftmost);
            const auto rowEnd = static_cast<std::size_t>(rightmost - image.shift());
            image.fill(first, last, 0, std::min(rowBegin, u.width));
            image.fill(first, last, u.width - std::min(rowEnd, u.width), u.width);
        }
    }
}

void unpackReversedQuads(const Unpacking& u)
{
    const std::size_t quads = u.pixels() / groupPixels;
    kernels::split(GroupLayout::ReversedQuads, {u.frame, quads}, {u.images[0], u.images[1]});
    u.clear(quads * groupPixels, u.pixels());
}

/// The group that a row of both ends begins but does not fill.
void unpackMiddle(const Unpacking& u, std::size_t row)
{
    const std::size_t k = u.width / groupPixels;
    // In rows of one pixel these may lie in a neighbouring row or, as huge numbers, before the
    // image.
    const std::array<std::size_t, groupPixels> targets = {
        row + 2 * k, row + u.width - 1 - 2 * k, row + 2 * k + 1, row + u.width - 2 - 2 * k};
    const std::size_t source = 2 * row + groupSize * k;
    for (std::size_t n = 0; n < groupSize; ++n) {
        const std::size_t target = targets[n % groupPixels];
        if (target < u.pixels() && source + n < u.bytes()) {
            u.images[n / groupPixels][target] = u.frame[source + n];
        }
    }
}

void unpackBothEnds(const Unpacking& u)
{
    const auto [a, b] = u.images;
    const bool hasMiddle = u.width % groupPixels != 0;
    // The frame may end within the last row's middle; in rows of one pixel, already within that of
    // the third row from below.
    const std::size_t lastRows = std::min<std::size_t>(3, u.height);
    u.clear(u.pixels() - lastRows * u.width, u.pixels());
    kernels::split(GroupLayout::BothEnds, {u.frame, u.width / groupPixels, u.height, u.width},
                   {a, a + u.width - 1, b, b + u.width - 1});
    for (std::size_t row = 0; hasMiddle && row < u.pixels(); row += u.width) {
        unpackMiddle(u, row);
    }
}

void mirrorRightHalves(const Unpacking& u)
{
    for (unsigned char* image : u.images) {
        for (std::size_t row = 0; row < u.pixels(); row += u.width) {
            for (std::size_t j = 0; j < u.width / 4; ++j) {
                std::swap(image[row + u.width / 2 + j], image[row + u.width - 1 - j]);
            }
        }
    }
}

void unpackBothEndsMirrored(const Unpacking& u)
{
    if (u.width % groupPixels != 0) {
        unpackBothEnds(u);
        mirrorRightHalves(u);
        return;
    }
    // Filled from the right and then mirrored: filled from the middle to the right.
    const auto [a, b] = u.images;
    const std::size_t middle = u.width / 2;
    kernels::split(GroupLayout::Sides, {u.frame, u.width / groupPixels, u.height, u.width},
                   {a, a + middle, b, b + middle});
}

// The same for every width.
constexpr std::array<std::size_t, 4> strips = {0, 320, 640, 960};
constexpr std::size_t stripsWidth = 1280;

/// Byte @p i of the row that starts at @p row goes to the image and the strip that its place in the
/// whole frame tells.
void unpackStripBytes(const Unpacking& u, std::size_t row, std::size_t begin, std::size_t end)
{
    for (std::size_t i = begin; i < end; ++i) {
        const std::size_t k = 2 * row + i;
        const std::size_t target = row + strips[k % strips.size()] + i / groupSize;
        if (target < u.pixels()) {
            u.images[k / strips.size() % 2][target] = u.frame[k];
        }
    }
}

/// Clears what the strips of no row reach.
void clearBesideStrips(const Unpacking& u, std::size_t reach)
{
    // Narrower rows leave gaps, and their strips lie in the rows below.
    if (u.width < stripsWidth) {
        u.clear(0, u.pixels());
        return;
    }
    for (std::size_t row = 0; row < u.pixels(); row += u.width) {
        u.clear(row + reach, row + u.width);
    }
}

void unpackStrips(const Unpacking& u)
{
    const std::size_t groups = u.width / groupPixels;
    const std::size_t reach = strips.back() + groups;
    clearBesideStrips(u, reach);

    // Rows whose strips end inside the image.
    const std::size_t wholeRows =
        u.pixels() < reach ? 0 : std::min(u.height, (u.pixels() - reach) / u.width + 1);
    // Where rows are not made of whole groups, the next row begins with another strip.
    const std::size_t rowsAtATime = u.width % groupPixels == 0 ? wholeRows : 1;
    for (std::size_t y = 0; y < wholeRows; y += rowsAtATime) {
        const std::size_t row = y * u.width;
        kernels::Streams streams;
        for (std::size_t n = 0; n < groupSize; ++n) {
            const std::size_t k = 2 * row + n;
            streams[n] = u.images[k / strips.size() % 2] + row + strips[k % strips.size()];
        }
        kernels::split(GroupLayout::Strips, {u.frame + 2 * row, groups, rowsAtATime, u.width},
                       streams);
        unpackStripBytes(u, row, groups * groupSize, 2 * u.width);
    }
    for (std::size_t row = wholeRows * u.width; row < u.pixels(); row += u.width) {
        unpackStripBytes(u, row, 0, 2 * u.width);
    }
}

} // namespace

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
    if (unpacking.pixels() == 0) {
        return;
    }
    switch (layout) {
    case FrameLayout::Interleaved:
        unpackInterleaved(unpacking);
        break;
    case FrameLayout::InterleavedShifted:
        unpackShifted(unpacking);
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
        unpackBothEndsMirrored(unpacking);
        break;
    case FrameLayout::Strips:
        unpackStrips(unpacking);
        break;
    }
}
