#pragma once

#include <QImage>

#include <array>
#include <span>

namespace zrnview
{

inline constexpr int greyLevels = 256;

/// How often each grey level occurs in an image, and what follows from that.
struct Histogram {
    std::array<quint32, greyLevels> counts{};
    quint64 pixels = 0;

    quint32 highest() const;    ///< count of the most frequent level
    double mean() const;        ///< 0 without pixels
    double deviation() const;   ///< standard deviation; 0 without pixels
    int minimum() const;        ///< darkest level that occurs; 0 without pixels
    int maximum() const;        ///< brightest level that occurs; 0 without pixels
    double darkShare() const;   ///< share of pixels at level 0, from 0 to 1
    double brightShare() const; ///< share of pixels at level 255, from 0 to 1
};

/// Counts the levels of @p pixels, each of them one byte.
Histogram histogramOf(std::span<const unsigned char> pixels);

/// Counts the levels of a part of an image. @param image of Format_Grayscale8
/// @param region inside of the image
Histogram histogramOf(const QImage& image, const QRect& region);

} // namespace zrnview
