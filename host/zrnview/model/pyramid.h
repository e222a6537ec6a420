#pragma once

#include <QImage>

#include <vector>

namespace zrnview
{

/// An 8-bit image at full size and at halves of it, so that drawing it small is neither slow nor
/// full of moiré. Level 0 is the image itself.
class Pyramid
{
public:
    Pyramid() = default;
    /// @param image of Format_Grayscale8
    explicit Pyramid(const QImage& image);

    bool isEmpty() const { return m_levels.empty(); }
    const QImage& full() const { return m_levels.front(); }
    QSize size() const { return isEmpty() ? QSize() : full().size(); }

    /// The smallest level that still has a pixel for each of the screen's at this scale.
    /// @param scale screen pixels for each image pixel @return 0 for the full image
    int levelFor(double scale) const;
    const QImage& level(int index) const { return m_levels.at(static_cast<std::size_t>(index)); }

private:
    std::vector<QImage> m_levels;
};

/// Half the size in both directions, each pixel the mean of four. An odd last row or column is left
/// out. @param image of Format_Grayscale8, 2 x 2 or larger
QImage halved(const QImage& image);

} // namespace zrnview
