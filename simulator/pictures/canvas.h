#pragma once

#include <cairo.h>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace zrnsim
{

struct Point {
    double x;
    double y;
};

/// An 8-bit grey picture to draw on with Cairo: shapes are added to a path, which is then painted
/// and begun anew. Coordinates are pixels from the upper left corner of the upper left pixel.
///
/// Scenes are drawn for 1000 x 800 units: positions stretch with the picture, lengths keep their
/// proportions, so that circles stay round.
///
/// Thread safety: reentrant.
class Canvas
{
public:
    /// A black picture. What lies beyond 32,767 columns or rows, which is as far as Cairo draws,
    /// stays black.
    /// @throws std::bad_alloc, std::length_error when it does not fit in memory
    Canvas(int width, int height);

    int width() const { return m_width; }
    int height() const { return m_height; }
    std::uint8_t* pixelRow(int y);

    /// Takes the pixels of another picture of the same size.
    void copy(const Canvas& other);

    // Units to pixels

    Point at(double x, double y) const { return {x * m_scaleX, y * m_scaleY}; }
    int column(double x) const;
    int row(double y) const;
    double length(double units) const;
    /// A length in whole pixels, at least 1.
    int pixels(double units) const;

    // The path, in pixels

    void addRect(double left, double top, double right, double bottom);
    void addPolygon(const std::vector<Point>& corners);
    void addEllipse(Point center, double radiusX, double radiusY);
    void addCircle(Point center, double radius) { addEllipse(center, radius, radius); }
    void addLine(Point from, Point to);

    // Painting

    void fill(std::uint8_t value);
    void stroke(double thickness, std::uint8_t value);
    /// Brings what lies below nearer to white. @param share 0 to 1
    void lighten(double share);
    /// Fills with what goes evenly from one value at one point to another at another.
    void fillGradient(Point from, std::uint8_t first, Point to, std::uint8_t last);
    /// Adds light that is brightest in the middle of a circle.
    void glow(Point center, double radius, double share);

private:
    void setValue(std::uint8_t value);

    int m_width;
    int m_height;
    double m_scaleX;
    double m_scaleY;
    std::size_t m_stride;
    std::vector<std::uint8_t> m_pixels;
    std::unique_ptr<cairo_t, void (*)(cairo_t*)> m_cairo;
};

} // namespace zrnsim
