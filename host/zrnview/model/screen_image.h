#pragma once

#include "zrnview/model/bayer.h"
#include "zrnview/model/view_transform.h"

#include <QImage>

#include <optional>

namespace zrnview
{

/// Colours that mark clipped pixels.
struct ClippingMarks {
    QRgb dark;   ///< for pixels at 0
    QRgb bright; ///< for pixels at 255
};

/// What of an image is to be seen in a view, a pixel for each of the screen's.
struct ScreenImage {
    QImage image;    ///< of Format_RGB32
    QPoint position; ///< in the view
};

/// Makes what is to be seen of an image, and nothing more. Smaller than the image it shows means,
/// so that there is no moiré, larger it shows the image's pixels as squares. Marks are set from
/// single pixels at any size. @param image of Format_Grayscale8 @param pattern for colours
ScreenImage screenImage(const QImage& image, const ViewTransform& transform,
                        BayerPattern pattern = BayerPattern::None,
                        const std::optional<ClippingMarks>& marks = std::nullopt);

/// Half the size in both directions, each pixel the mean of four. An odd last row or column is left
/// out. @param image of Format_Grayscale8, 2 x 2 or larger
QImage halved(const QImage& image);

} // namespace zrnview
