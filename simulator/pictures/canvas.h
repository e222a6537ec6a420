#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

namespace zrnsim
{

struct Point {
    double x;
    double y;
};

/// An 8-bit grey picture to draw on. Coordinates are pixels from the upper left corner of the upper
/// left pixel; whatever lies outside the picture is clipped. Reentrant.
class Canvas
{
public:
    /// A black picture. Throws std::bad_alloc or std::length_error when it does not fit in memory.
    Canvas(int width, int height);

    int width() const { return m_width; }
    int height() const { return m_height; }
    std::uint8_t* row(int y) { return m_pixels.data() + offsetOf(y); }
    const std::uint8_t* row(int y) const { return m_pixels.data() + offsetOf(y); }

    /// Sets the whole pixels in [left, right) x [top, bottom).
    void fillRect(int left, int top, int right, int bottom, std::uint8_t value);

    /// Fills a polygon with smooth edges; where its outline crosses itself, by the even-odd rule.
    /// @param opacity 0 to 1
    void fillPolygon(std::span<const Point> outline, std::uint8_t value, double opacity = 1.0);

    void fillEllipse(Point center, double radiusX, double radiusY, std::uint8_t value,
                     double opacity = 1.0);
    void drawRing(Point center, double radius, double thickness, std::uint8_t value,
                  double opacity = 1.0);
    void drawLine(Point from, Point to, double thickness, std::uint8_t value, double opacity = 1.0);

    /// Digits, capital letters and spaces; every dot of the font is `dot` x `dot` pixels.
    void drawText(int left, int top, int dot, std::string_view text, std::uint8_t value);

private:
    std::size_t offsetOf(int y) const
    {
        return static_cast<std::size_t>(y) * static_cast<std::size_t>(m_width);
    }
    void addSpan(double from, double to);

    int m_width;
    int m_height;
    std::vector<std::uint8_t> m_pixels;
    std::vector<std::uint16_t> m_coverage; // of the row being filled
    std::vector<double> m_crossings;       // of the line being filled
};

/// The size of a text drawn with dots of one pixel.
int textWidth(std::string_view text);

} // namespace zrnsim
