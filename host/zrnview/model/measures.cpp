#include "zrnview/model/measures.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace zrnview
{
namespace
{

QPoint within(QPoint point, QSize image)
{
    return {std::clamp(point.x(), 0, std::max(image.width() - 1, 0)),
            std::clamp(point.y(), 0, std::max(image.height() - 1, 0))};
}

} // namespace

Selection middleOf(QSize image)
{
    const QPoint corner(image.width() / 4, image.height() / 4);
    return within({corner, corner + QPoint(image.width() / 2 - 1, image.height() / 2 - 1)}, image);
}

Selection middleRowOf(QSize image)
{
    const int middle = image.height() / 2;
    return within({{0, middle}, {image.width() - 1, middle}}, image);
}

Selection within(const Selection& selection, QSize image)
{
    return {within(selection.from, image), within(selection.to, image)};
}

std::vector<unsigned char> profileOf(const QImage& image, const Selection& line)
{
    const QPoint distance = line.to - line.from;
    const int steps = std::max(std::abs(distance.x()), std::abs(distance.y()));
    std::vector<unsigned char> levels;
    levels.reserve(static_cast<std::size_t>(steps) + 1);
    for (int i = 0; i <= steps; ++i) {
        const double share = steps == 0 ? 0 : static_cast<double>(i) / steps;
        const int x = line.from.x() + static_cast<int>(std::lround(distance.x() * share));
        const int y = line.from.y() + static_cast<int>(std::lround(distance.y() * share));
        levels.push_back(image.constScanLine(y)[x]);
    }
    return levels;
}

double focusMeasure(const QImage& image, const QRect& region)
{
    constexpr int apart = 2;
    quint64 squares = 0;
    quint64 pairs = 0;
    quint64 sum = 0;
    for (int y = region.top(); y <= region.bottom(); ++y) {
        const uchar* row = image.constScanLine(y) + region.left();
        const int width = region.width();
        quint32 rowSum = 0;
        for (int x = 0; x < width; ++x) {
            rowSum += row[x];
        }
        sum += rowSum;
        const auto add = [&](const uchar* one, const uchar* other, int count) {
            quint32 rowSquares = 0; // of at most 65 thousand pairs
            for (int x = 0; x < count; ++x) {
                const int distance = one[x] - other[x];
                rowSquares += static_cast<quint32>(distance * distance);
            }
            squares += rowSquares;
            pairs += static_cast<quint64>(count);
        };
        if (width > apart) {
            add(row, row + apart, width - apart);
        }
        if (y + apart <= region.bottom()) {
            add(row, image.constScanLine(y + apart) + region.left(), width);
        }
    }
    const double pixels = static_cast<double>(region.width()) * region.height();
    const double mean = static_cast<double>(sum) / std::max(pixels, 1.0);
    return pairs == 0 || mean <= 0
               ? 0
               : 1000 * static_cast<double>(squares) / static_cast<double>(pairs) / (mean * mean);
}

} // namespace zrnview
