#include "frame_unpacking.h"

#include "kernels/group_split.h"
#include "row_alignment.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace
{

constexpr std::size_t groupSize = 8;
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
void splitAlternating(const unsigned char* source, std::size_t pixels, unsigned char* a,
                      unsigned char* b)
{
    kernels::splitAlternating(source, pixels / groupPixels, {a, b});
    for (std::size_t i = pixels / groupPixels * groupPixels; i < pixels; ++i) {
        a[i] = source[2 * i];
        b[i] = source[2 * i + 1];
    }
}

void unpackInterleaved(const Unpacking& u)
{
    splitAlternating(u.frame, u.pixels(), u.images[0], u.images[1]);
}

/// An image of an interleaved frame whose rows are to be moved on the way.
class ShiftedImage
{
public:
    ShiftedImage(const Unpacking& unpacking, std::size_t image)
        : m_unpacking(unpacking)
        , m_image(image)
    {
        AlignmentHeader header;
        if (unpacking.pixels() < alignmentHeaderBegin + header.size()) {
            return;
        }
        for (std::size_t i = 0; i < header.size(); ++i) {
            header[i] = packed(alignmentHeaderBegin + i);
        }
        m_shift = rowShift(header).value_or(RowShift{});
    }

    [[nodiscard]] std::ptrdiff_t shift() const { return m_shift.pixels; }

    /// Fills the pixels from @p begin to @p end, which lie in the row that starts at @p row.
    void fill(std::size_t row, std::size_t begin, std::size_t end) const
    {
        const std::size_t runBegin = m_shift.acrossRows ? firstMovedRow * m_unpacking.width : row;
        const std::size_t runEnd =
            m_shift.acrossRows ? m_unpacking.pixels() : row + m_unpacking.width;
        for (std::size_t pixel = begin; pixel < end; ++pixel) {
            // Before the image, this is a huge number.
            const std::size_t moved = pixel - static_cast<std::size_t>(shift());
            const bool covered = runBegin <= moved && moved < runEnd;
            m_unpacking.images[m_image][pixel] = packed(covered ? moved : pixel);
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

/// Unpacks and moves the rows in one pass: most of each row goes straight to where it belongs.
void unpackShifted(const Unpacking& u)
{
    const std::size_t fixedRows = std::min<std::size_t>(firstMovedRow, u.height);
    splitAlternating(u.frame, fixedRows * u.width, u.images[0], u.images[1]);

    const std::array<ShiftedImage, 2> images = {ShiftedImage(u, 0), ShiftedImage(u, 1)};
    const auto [leftmost, rightmost] =
        std::minmax({std::ptrdiff_t{0}, images[0].shift(), images[1].shift()});
    // The part of a row that stays inside the row in both images.
    const std::ptrdiff_t begin = -leftmost;
    const std::ptrdiff_t length = static_cast<std::ptrdiff_t>(u.width) - begin - rightmost;

    for (std::size_t row = fixedRows * u.width; row < u.pixels(); row += u.width) {
        const std::size_t rowEnd = row + u.width;
        if (length <= 0) {
            images[0].fill(row, row, rowEnd);
            images[1].fill(row, row, rowEnd);
            continue;
        }
        std::array<std::size_t, 2> targets{};
        for (std::size_t i = 0; i < images.size(); ++i) {
            targets[i] = row + static_cast<std::size_t>(begin + images[i].shift());
            images[i].fill(row, row, targets[i]);
            images[i].fill(row, targets[i] + static_cast<std::size_t>(length), rowEnd);
        }
        splitAlternating(u.frame + 2 * (row + static_cast<std::size_t>(begin)),
                         static_cast<std::size_t>(length), u.images[0] + targets[0],
                         u.images[1] + targets[1]);
    }
}

void unpackReversedQuads(const Unpacking& u)
{
    const std::size_t quads = u.pixels() / groupPixels;
    kernels::splitReversedQuads(u.frame, quads, u.images);
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
    for (std::size_t row = 0; row < u.pixels(); row += u.width) {
        const std::size_t rowEnd = row + u.width - 1;
        kernels::splitBothEnds(u.frame + 2 * row, u.width / groupPixels,
                               {a + row, a + rowEnd, b + row, b + rowEnd});
        if (hasMiddle) {
            unpackMiddle(u, row);
        }
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
    for (std::size_t row = 0; row < u.pixels(); row += u.width) {
        const std::size_t middle = row + u.width / 2;
        kernels::splitSides(u.frame + 2 * row, u.width / groupPixels,
                            {a + row, a + middle, b + row, b + middle});
    }
}

// The sensor's own strip distance, whatever part of it is read out.
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

void unpackStrips(const Unpacking& u)
{
    const std::size_t groups = u.width / groupPixels;
    // Narrower rows leave gaps, and their strips lie in the rows below.
    const bool reachRowEnds = u.width >= stripsWidth;
    if (!reachRowEnds) {
        u.clear(0, u.pixels());
    }
    for (std::size_t row = 0; row < u.pixels(); row += u.width) {
        const std::size_t reach = row + strips.back() + groups;
        if (reachRowEnds) {
            u.clear(reach, row + u.width);
        }
        if (reach > u.pixels()) {
            unpackStripBytes(u, row, 0, 2 * u.width);
            continue;
        }
        std::array<unsigned char*, groupSize> streams;
        for (std::size_t n = 0; n < groupSize; ++n) {
            const std::size_t k = 2 * row + n;
            streams[n] = u.images[k / strips.size() % 2] + row + strips[k % strips.size()];
        }
        kernels::splitStrips(u.frame + 2 * row, groups, streams);
        unpackStripBytes(u, row, groups * groupSize, 2 * u.width);
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
