#include "zrnview/model/screen_image.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace zrnview
{
namespace
{

constexpr int weightBits = 8; ///< of the shares of two neighbours

/// Which part of one dimension of an image is seen, and where.
struct Span {
    double scale;  ///< screen pixels for each image pixel
    double origin; ///< of the image on the screen
    int first;     ///< screen pixel
    int count;
    int pixels; ///< of the image

    /// Where the middle of a screen pixel lies in the image.
    double at(int index) const { return (first + index + 0.5 - origin) / scale; }
};

Span visible(double origin, double scale, int pixels, double view)
{
    origin = std::round(origin); // so that at a scale of 1 pixels lie on pixels
    const int first = static_cast<int>(std::max(origin, 0.0));
    const int end = static_cast<int>(std::min(std::round(origin + pixels * scale), view));
    return {scale, origin, first, std::max(end - first, 0), pixels};
}

/// The image's pixel under each of the screen's.
std::vector<int> nearest(const Span& span)
{
    std::vector<int> indices(static_cast<std::size_t>(span.count));
    for (int i = 0; i < span.count; ++i) {
        indices[static_cast<std::size_t>(i)] =
            std::clamp(static_cast<int>(std::floor(span.at(i))), 0, span.pixels - 1);
    }
    return indices;
}

struct Neighbours {
    int first;
    int second;
    int shareOfSecond; ///< from 0 to 1 << weightBits
};

/// The two pixels of the image between whose middles that of each of the screen's lies.
std::vector<Neighbours> neighbours(const Span& span)
{
    std::vector<Neighbours> pairs(static_cast<std::size_t>(span.count));
    for (int i = 0; i < span.count; ++i) {
        const double position = std::clamp(span.at(i) - 0.5, 0.0, span.pixels - 1.0);
        const int first = static_cast<int>(position);
        pairs[static_cast<std::size_t>(i)] = {
            first, std::min(first + 1, span.pixels - 1),
            static_cast<int>(std::lround((position - first) * (1 << weightBits)))};
    }
    return pairs;
}

QImage nearestPixels(const QImage& image, const Span& across, const Span& down)
{
    const std::vector<int> columns = nearest(across);
    const std::vector<int> rows = nearest(down);
    QImage result(across.count, down.count, QImage::Format_Grayscale8);
    for (int y = 0; y < down.count; ++y) {
        uchar* out = result.scanLine(y);
        const int row = rows[static_cast<std::size_t>(y)];
        if (y > 0 && row == rows[static_cast<std::size_t>(y) - 1]) {
            std::copy_n(result.constScanLine(y - 1), across.count, out);
            continue;
        }
        const uchar* in = image.constScanLine(row);
        for (int x = 0; x < across.count; ++x) {
            out[x] = in[columns[static_cast<std::size_t>(x)]];
        }
    }
    return result;
}

QImage blendedPixels(const QImage& image, const Span& across, const Span& down)
{
    const std::vector<Neighbours> columns = neighbours(across);
    const std::vector<Neighbours> rows = neighbours(down);
    const int width = image.width();
    std::vector<quint16> blended(static_cast<std::size_t>(width));
    quint16* row = blended.data();
    QImage result(across.count, down.count, QImage::Format_Grayscale8);
    for (int y = 0; y < down.count; ++y) {
        const Neighbours& pair = rows[static_cast<std::size_t>(y)];
        const uchar* upper = image.constScanLine(pair.first);
        const uchar* lower = image.constScanLine(pair.second);
        const auto lowerShare = static_cast<quint16>(pair.shareOfSecond);
        const auto upperShare = static_cast<quint16>((1 << weightBits) - pair.shareOfSecond);
        for (int x = 0; x < width; ++x) {
            row[x] = static_cast<quint16>(upper[x] * upperShare + lower[x] * lowerShare);
        }
        uchar* out = result.scanLine(y);
        for (int x = 0; x < across.count; ++x) {
            const Neighbours& at = columns[static_cast<std::size_t>(x)];
            const int sum = row[at.first] * ((1 << weightBits) - at.shareOfSecond) +
                            row[at.second] * at.shareOfSecond;
            out[x] = static_cast<uchar>((sum + (1 << (2 * weightBits - 1))) >> (2 * weightBits));
        }
    }
    return result;
}

/// The image at the size of the screen. @param image is what @p across and @p down tell of
QImage resampled(QImage image, Span across, Span down)
{
    if (across.scale >= 1) {
        return nearestPixels(image, across, down);
    }
    while (across.scale <= 0.5 && image.width() >= 2 && image.height() >= 2) {
        image = halved(image);
        for (Span* span : {&across, &down}) {
            span->scale *= 2;
            span->pixels /= 2;
        }
    }
    return blendedPixels(image, across, down);
}

/// A part of an image, which has to outlive it.
QImage partOf(const QImage& image, const QRect& part)
{
    return {image.constScanLine(part.top()) + part.left(), part.width(), part.height(),
            static_cast<int>(image.bytesPerLine()), QImage::Format_Grayscale8};
}

/// First and end of the pixels that a span needs, with neighbours, at multiples of @p grain.
std::pair<int, int> needed(const Span& span, int grain)
{
    constexpr int margin = 2;
    const int first =
        std::clamp(static_cast<int>(std::floor(span.at(0))) - margin, 0, span.pixels) / grain *
        grain;
    const int end = std::clamp(
        static_cast<int>(std::floor(span.at(span.count - 1))) + 1 + margin + grain, 0, span.pixels);
    return {first, end};
}

Span within(Span span, std::pair<int, int> range)
{
    span.origin += range.first * span.scale;
    span.pixels = range.second - range.first;
    return span;
}

QImage coloured(const QImage& grey)
{
    QImage result(grey.size(), QImage::Format_RGB32);
    const int width = grey.width();
    for (int y = 0; y < grey.height(); ++y) {
        const uchar* in = grey.constScanLine(y);
        auto* out = reinterpret_cast<QRgb*>(result.scanLine(y));
        for (int x = 0; x < width; ++x) {
            out[x] = 0xff000000U | (in[x] * 0x010101U);
        }
    }
    return result;
}

QImage coloured(const QImage& red, const QImage& green, const QImage& blue)
{
    QImage result(red.size(), QImage::Format_RGB32);
    const int width = red.width();
    for (int y = 0; y < red.height(); ++y) {
        const uchar* reds = red.constScanLine(y);
        const uchar* greens = green.constScanLine(y);
        const uchar* blues = blue.constScanLine(y);
        auto* out = reinterpret_cast<QRgb*>(result.scanLine(y));
        for (int x = 0; x < width; ++x) {
            out[x] = 0xff000000U | static_cast<QRgb>(reds[x]) << 16U |
                     static_cast<QRgb>(greens[x]) << 8U | blues[x];
        }
    }
    return result;
}

void mark(QImage& screen, const QImage& levels, const ClippingMarks& marks)
{
    const int width = screen.width();
    for (int y = 0; y < screen.height(); ++y) {
        const uchar* in = levels.constScanLine(y);
        auto* out = reinterpret_cast<QRgb*>(screen.scanLine(y));
        for (int x = 0; x < width; ++x) {
            out[x] = in[x] == 0 ? marks.dark : in[x] == 255 ? marks.bright : out[x];
        }
    }
}

/// How many pixels of the image belong together when it is made as small as that.
int grainOf(double scale)
{
    int grain = 2; // of a colour mosaic
    while (scale <= 0.5) {
        grain *= 2;
        scale *= 2;
    }
    return grain;
}

} // namespace

ScreenImage screenImage(const QImage& image, const ViewTransform& transform, BayerPattern pattern,
                        const std::optional<ClippingMarks>& marks)
{
    const QRectF target = transform.target();
    const double scale = transform.scale();
    Span across = visible(target.left(), scale, image.width(), transform.view().width());
    Span down = visible(target.top(), scale, image.height(), transform.view().height());
    ScreenImage screen{QImage(), {across.first, down.first}};
    if (across.count == 0 || down.count == 0) {
        return screen;
    }
    const auto columns = needed(across, grainOf(scale));
    const auto rows = needed(down, grainOf(scale));
    const QImage part = partOf(image, QRect(QPoint(columns.first, rows.first),
                                            QPoint(columns.second - 1, rows.second - 1)));
    across = within(across, columns);
    down = within(down, rows);

    if (pattern == BayerPattern::None || part.width() < 2 || part.height() < 2) {
        screen.image =
            coloured(marks ? nearestPixels(part, across, down) : resampled(part, across, down));
    } else if (scale <= 0.5) {
        const ColourPlanes planes = halfSizePlanes(part, pattern);
        Span halfAcross = across;
        Span halfDown = down;
        for (Span* span : {&halfAcross, &halfDown}) {
            span->scale *= 2;
            span->pixels /= 2;
        }
        screen.image = coloured(resampled(planes.red, halfAcross, halfDown),
                                resampled(planes.green, halfAcross, halfDown),
                                resampled(planes.blue, halfAcross, halfDown));
    } else {
        const ColourPlanes planes = fullSizePlanes(part, pattern);
        screen.image =
            coloured(resampled(planes.red, across, down), resampled(planes.green, across, down),
                     resampled(planes.blue, across, down));
    }
    if (marks) {
        mark(screen.image, nearestPixels(part, across, down), *marks);
    }
    return screen;
}

QImage halved(const QImage& image)
{
    QImage half(image.width() / 2, image.height() / 2, QImage::Format_Grayscale8);
    const int width = half.width();
    for (int y = 0; y < half.height(); ++y) {
        const uchar* upper = image.constScanLine(2 * y);
        const uchar* lower = image.constScanLine(2 * y + 1);
        uchar* out = half.scanLine(y);
        for (int x = 0; x < width; ++x) {
            const int sum = upper[2 * x] + upper[2 * x + 1] + lower[2 * x] + lower[2 * x + 1];
            out[x] = static_cast<uchar>((sum + 2) / 4);
        }
    }
    return half;
}

} // namespace zrnview
