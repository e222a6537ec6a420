#include "zrnview/model/histogram.h"

#include <algorithm>
#include <cmath>

namespace zrnview
{
namespace
{

double share(quint32 count, quint64 pixels)
{
    return pixels == 0 ? 0 : static_cast<double>(count) / static_cast<double>(pixels);
}

} // namespace

quint32 Histogram::highest() const
{
    return *std::max_element(counts.begin(), counts.end());
}

double Histogram::mean() const
{
    double sum = 0;
    for (int level = 0; level < greyLevels; ++level) {
        sum += static_cast<double>(counts.at(static_cast<std::size_t>(level))) * level;
    }
    return pixels == 0 ? 0 : sum / static_cast<double>(pixels);
}

double Histogram::deviation() const
{
    const double centre = mean();
    double sum = 0;
    for (int level = 0; level < greyLevels; ++level) {
        const double distance = level - centre;
        sum +=
            static_cast<double>(counts.at(static_cast<std::size_t>(level))) * distance * distance;
    }
    return pixels == 0 ? 0 : std::sqrt(sum / static_cast<double>(pixels));
}

int Histogram::minimum() const
{
    const auto found =
        std::find_if(counts.begin(), counts.end(), [](quint32 count) { return count > 0; });
    return found == counts.end() ? 0 : static_cast<int>(found - counts.begin());
}

int Histogram::maximum() const
{
    const auto found =
        std::find_if(counts.rbegin(), counts.rend(), [](quint32 count) { return count > 0; });
    return found == counts.rend() ? 0 : static_cast<int>(counts.rend() - found) - 1;
}

double Histogram::darkShare() const
{
    return share(counts.front(), pixels);
}

double Histogram::brightShare() const
{
    return share(counts.back(), pixels);
}

namespace
{

/// Four tables, so that equal neighbours do not wait for each other's increment.
using Tables = std::array<std::array<quint32, greyLevels>, 4>;

void count(std::span<const unsigned char> pixels, Tables& tables)
{
    std::size_t i = 0;
    for (; i + 4 <= pixels.size(); i += 4) {
        ++tables[0][pixels[i]];
        ++tables[1][pixels[i + 1]];
        ++tables[2][pixels[i + 2]];
        ++tables[3][pixels[i + 3]];
    }
    for (; i < pixels.size(); ++i) {
        ++tables[0][pixels[i]];
    }
}

Histogram summed(const Tables& tables, quint64 pixels)
{
    Histogram histogram;
    histogram.pixels = pixels;
    for (std::size_t level = 0; level < greyLevels; ++level) {
        histogram.counts[level] =
            tables[0][level] + tables[1][level] + tables[2][level] + tables[3][level];
    }
    return histogram;
}

} // namespace

Histogram histogramOf(std::span<const unsigned char> pixels)
{
    Tables tables{};
    count(pixels, tables);
    return summed(tables, pixels.size());
}

Histogram histogramOf(const QImage& image, const QRect& region)
{
    Tables tables{};
    const auto width = static_cast<std::size_t>(region.width());
    for (int y = region.top(); y <= region.bottom(); ++y) {
        count({image.constScanLine(y) + region.left(), width}, tables);
    }
    return summed(tables, width * static_cast<std::size_t>(region.height()));
}

} // namespace zrnview
