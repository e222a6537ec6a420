#pragma once

#include <QImage>
#include <QPoint>
#include <QRect>

#include <algorithm>
#include <vector>

namespace zrnview
{

/// Where something is measured in an image, in its pixels: a line, or a rectangle by two corners.
struct Selection {
    QPoint from;
    QPoint to;

    QRect rectangle() const
    {
        return {QPoint(std::min(from.x(), to.x()), std::min(from.y(), to.y())),
                QPoint(std::max(from.x(), to.x()), std::max(from.y(), to.y()))};
    }
    bool operator==(const Selection&) const = default;
};

/// The middle of an image, a quarter of its area.
Selection middleOf(QSize image);
/// The middle row of an image.
Selection middleRowOf(QSize image);
/// The part of a selection that lies in an image.
Selection within(const Selection& selection, QSize image);

/// The levels along a line, both ends included, one for each step of its longer direction.
/// @param image of Format_Grayscale8 @param line inside of the image
std::vector<unsigned char> profileOf(const QImage& image, const Selection& line);

/// How much fine detail there is: the mean squared distance of pixels that are two apart, in
/// thousandths of the squared mean. Two apart pixels of a colour mosaic have one colour; the mean
/// makes it the same at any exposure. Highest where the lens is in focus; comparable for one scene
/// only. @param region inside of the image @return 0 where there is nothing to compare
double focusMeasure(const QImage& image, const QRect& region);

} // namespace zrnview
