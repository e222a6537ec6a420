#include "zrnview/model/bayer.h"

#include <algorithm>
#include <cmath>

namespace zrnview
{
namespace
{

constexpr std::array<const char*, 5> patternNames = {"", "RGGB", "GRBG", "GBRG", "BGGR"};
constexpr int highestGain = 255;
/// A mean above it comes from clipped pixels, whose ratio to others is not that of the light.
constexpr double brightestMean = 250;

/// Where in each four pixels red lies; blue lies opposite.
QPoint redOf(BayerPattern pattern)
{
    return {pattern == BayerPattern::Grbg || pattern == BayerPattern::Bggr ? 1 : 0,
            pattern == BayerPattern::Gbrg || pattern == BayerPattern::Bggr ? 1 : 0};
}

ColourPlanes planesOf(QSize size)
{
    return {QImage(size, QImage::Format_Grayscale8), QImage(size, QImage::Format_Grayscale8),
            QImage(size, QImage::Format_Grayscale8)};
}

uchar mean(int a, int b)
{
    return static_cast<uchar>((a + b + 1) / 2);
}

uchar mean(int a, int b, int c, int d)
{
    return static_cast<uchar>((a + b + c + d + 2) / 4);
}

/// Index of the neighbour that stands for one beyond the edge: of the same colour.
int mirrored(int index, int count)
{
    return index < 0 ? -index : index >= count ? 2 * count - 2 - index : index;
}

} // namespace

QString nameOf(BayerPattern pattern)
{
    return QString::fromLatin1(patternNames.at(static_cast<std::size_t>(pattern)));
}

BayerPattern bayerPatternOf(const QString& name)
{
    const auto* found = std::find(patternNames.begin(), patternNames.end(), name);
    return found == patternNames.end() ? BayerPattern::None
                                       : static_cast<BayerPattern>(found - patternNames.begin());
}

ColourPlanes halfSizePlanes(const QImage& mosaic, BayerPattern pattern)
{
    const QPoint red = redOf(pattern);
    const int width = mosaic.width() / 2;
    const int height = mosaic.height() / 2;
    ColourPlanes planes = planesOf({width, height});
    for (int y = 0; y < height; ++y) {
        const uchar* redRow = mosaic.constScanLine(2 * y + red.y());
        const uchar* blueRow = mosaic.constScanLine(2 * y + 1 - red.y());
        uchar* reds = planes.red.scanLine(y);
        uchar* greens = planes.green.scanLine(y);
        uchar* blues = planes.blue.scanLine(y);
        const int redX = red.x();
        const int blueX = 1 - red.x();
        for (int x = 0; x < width; ++x) {
            reds[x] = redRow[2 * x + redX];
            blues[x] = blueRow[2 * x + blueX];
            greens[x] = mean(redRow[2 * x + blueX], blueRow[2 * x + redX]);
        }
    }
    return planes;
}

ColourPlanes fullSizePlanes(const QImage& mosaic, BayerPattern pattern)
{
    const QPoint red = redOf(pattern);
    const int width = mosaic.width();
    const int height = mosaic.height();
    ColourPlanes planes = planesOf(mosaic.size());
    for (int y = 0; y < height; ++y) {
        const uchar* row = mosaic.constScanLine(y);
        const uchar* above = mosaic.constScanLine(mirrored(y - 1, height));
        const uchar* below = mosaic.constScanLine(mirrored(y + 1, height));
        const bool isRedRow = y % 2 == red.y();
        uchar* own = isRedRow ? planes.red.scanLine(y) : planes.blue.scanLine(y);
        uchar* other = isRedRow ? planes.blue.scanLine(y) : planes.red.scanLine(y);
        uchar* greens = planes.green.scanLine(y);
        const int ownX = isRedRow ? red.x() : 1 - red.x();
        for (int x = 0; x < width; ++x) {
            const int left = mirrored(x - 1, width);
            const int right = mirrored(x + 1, width);
            if (x % 2 == ownX) {
                own[x] = row[x];
                greens[x] = mean(row[left], row[right], above[x], below[x]);
                other[x] = mean(above[left], above[right], below[left], below[right]);
            } else {
                greens[x] = row[x];
                own[x] = mean(row[left], row[right]);
                other[x] = mean(above[x], below[x]);
            }
        }
    }
    return planes;
}

BayerChannels<double> channelMeans(const QImage& mosaic, BayerPattern pattern, const QRect& region)
{
    const QPoint red = redOf(pattern);
    BayerChannels<quint64> sums{};
    BayerChannels<quint64> counts{};
    for (int y = region.top(); y <= region.bottom(); ++y) {
        const uchar* row = mosaic.constScanLine(y);
        const bool isRedRow = y % 2 == red.y();
        for (int x = region.left(); x <= region.right(); ++x) {
            const bool isRedColumn = x % 2 == red.x();
            const std::size_t index = (isRedRow ? 0U : 2U) + (isRedColumn ? 0U : 1U);
            sums.at(index) += row[x];
            ++counts.at(index);
        }
    }
    BayerChannels<double> means{};
    for (std::size_t i = 0; i < means.size(); ++i) {
        means.at(i) = counts.at(i) == 0
                          ? 0
                          : static_cast<double>(sums.at(i)) / static_cast<double>(counts.at(i));
    }
    return means;
}

std::optional<BayerChannels<int>> balancedGains(const BayerChannels<double>& means,
                                                const BayerChannels<int>& gains)
{
    const double green = (means[1] + means[2]) / 2;
    BayerChannels<double> wanted{};
    for (std::size_t i = 0; i < means.size(); ++i) {
        if (means.at(i) <= 0 || means.at(i) > brightestMean || gains.at(i) <= 0) {
            return std::nullopt;
        }
        wanted.at(i) = gains.at(i) * green / means.at(i);
    }
    const double highest = *std::max_element(wanted.begin(), wanted.end());
    const double scale = std::min(1.0, highestGain / highest);
    BayerChannels<int> balanced{};
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        balanced.at(i) =
            std::clamp(static_cast<int>(std::lround(wanted.at(i) * scale)), 1, highestGain);
    }
    return balanced;
}

} // namespace zrnview
