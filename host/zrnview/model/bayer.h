#pragma once

#include <QImage>

#include <array>
#include <optional>

namespace zrnview
{

/// Which colour filter lies over the four pixels at the top left corner, row by row.
enum class BayerPattern { None, Rggb, Grbg, Gbrg, Bggr };

/// "RGGB" and so on; empty for none.
QString nameOf(BayerPattern pattern);
/// None for anything that is no name of one.
BayerPattern bayerPatternOf(const QString& name);

/// The colours of an image, each as an image of Format_Grayscale8.
struct ColourPlanes {
    QImage red;
    QImage green;
    QImage blue;
};

/// Half the size: a pixel for each four of the mosaic, with the mean of its two greens. An odd last
/// row or column is left out. @param mosaic of Format_Grayscale8 @param pattern not None
ColourPlanes halfSizePlanes(const QImage& mosaic, BayerPattern pattern);

/// The same size: colours that a pixel lacks are means of its neighbours'.
/// @param mosaic of Format_Grayscale8, 2 x 2 or larger @param pattern not None
ColourPlanes fullSizePlanes(const QImage& mosaic, BayerPattern pattern);

/// A number for each of the four kinds of pixels: red, green in red rows, green in blue rows, blue.
/// The camera's colour gains have this order.
template <typename Number>
using BayerChannels = std::array<Number, 4>;

/// Means of the pixels in @p region. @param region inside of the image; 2 x 2 or larger
BayerChannels<double> channelMeans(const QImage& mosaic, BayerPattern pattern, const QRect& region);

/// Gains that make the four means equal, for a camera whose values are in proportion to its gains.
/// The greens stay as bright as they are on average, unless a gain would leave 1 to 255: then all
/// are made smaller together. @return nothing where a mean or a gain is 0, or clipping hides the
/// ratio
std::optional<BayerChannels<int>> balancedGains(const BayerChannels<double>& means,
                                                const BayerChannels<int>& gains);

} // namespace zrnview
