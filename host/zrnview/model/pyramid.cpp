#include "zrnview/model/pyramid.h"

namespace zrnview
{
namespace
{

constexpr int smallestEdge = 64; ///< no level is made below this
constexpr int highestLevel = 3;

} // namespace

Pyramid::Pyramid(const QImage& image)
{
    m_levels.push_back(image);
    while (static_cast<int>(m_levels.size()) <= highestLevel &&
           std::min(m_levels.back().width(), m_levels.back().height()) / 2 >= smallestEdge) {
        m_levels.push_back(halved(m_levels.back()));
    }
}

int Pyramid::levelFor(double scale) const
{
    int level = 0;
    while (level + 1 < static_cast<int>(m_levels.size()) && scale <= 0.5) {
        scale *= 2;
        ++level;
    }
    return level;
}

QImage halved(const QImage& image)
{
    QImage half(image.width() / 2, image.height() / 2, QImage::Format_Grayscale8);
    for (int y = 0; y < half.height(); ++y) {
        const uchar* upper = image.constScanLine(2 * y);
        const uchar* lower = image.constScanLine(2 * y + 1);
        uchar* out = half.scanLine(y);
        for (int x = 0; x < half.width(); ++x) {
            const int sum = upper[2 * x] + upper[2 * x + 1] + lower[2 * x] + lower[2 * x + 1];
            out[x] = static_cast<uchar>((sum + 2) / 4);
        }
    }
    return half;
}

} // namespace zrnview
