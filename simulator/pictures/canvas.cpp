#include "pictures/canvas.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace zrnsim
{

namespace
{

constexpr double kUnitsAcross = 1000.0;
constexpr double kUnitsDown = 800.0;

/// A picture of transparencies is one of greys: painting opaquely mixes them by coverage.
cairo_t* drawOn(std::vector<std::uint8_t>& pixels, int width, int height, std::size_t stride)
{
    constexpr int farthest = 32'767;
    cairo_surface_t* const surface = cairo_image_surface_create_for_data(
        pixels.data(), CAIRO_FORMAT_A8, std::min(width, farthest), std::min(height, farthest),
        static_cast<int>(stride));
    cairo_t* const context = cairo_create(surface);
    cairo_surface_destroy(surface);
    cairo_set_antialias(context, CAIRO_ANTIALIAS_FAST);
    return context;
}

} // namespace

Canvas::Canvas(int width, int height)
    : m_width(width)
    , m_height(height)
    , m_scaleX(width / kUnitsAcross)
    , m_scaleY(height / kUnitsDown)
    , m_stride((static_cast<std::size_t>(width) + 3) / 4 * 4) // as Cairo wants it
    , m_pixels(m_stride * static_cast<std::size_t>(height))
    , m_cairo(drawOn(m_pixels, width, height, m_stride), cairo_destroy)
{
}

std::uint8_t* Canvas::pixelRow(int y)
{
    return m_pixels.data() + static_cast<std::size_t>(y) * m_stride;
}

void Canvas::copy(const Canvas& other)
{
    std::copy(other.m_pixels.begin(), other.m_pixels.end(), m_pixels.begin());
}

int Canvas::column(double x) const
{
    return static_cast<int>(std::lround(x * m_scaleX));
}

int Canvas::row(double y) const
{
    return static_cast<int>(std::lround(y * m_scaleY));
}

double Canvas::length(double units) const
{
    return units * std::min(m_scaleX, m_scaleY);
}

int Canvas::pixels(double units) const
{
    return std::max(1, static_cast<int>(std::lround(length(units))));
}

void Canvas::addRect(double left, double top, double right, double bottom)
{
    cairo_rectangle(m_cairo.get(), left, top, right - left, bottom - top);
}

void Canvas::addPolygon(const std::vector<Point>& corners)
{
    cairo_new_sub_path(m_cairo.get());
    for (const Point corner : corners) {
        cairo_line_to(m_cairo.get(), corner.x, corner.y);
    }
    cairo_close_path(m_cairo.get());
}

void Canvas::addEllipse(Point center, double radiusX, double radiusY)
{
    cairo_save(m_cairo.get());
    cairo_new_sub_path(m_cairo.get());
    cairo_translate(m_cairo.get(), center.x, center.y);
    cairo_scale(m_cairo.get(), radiusX, radiusY);
    cairo_arc(m_cairo.get(), 0.0, 0.0, 1.0, 0.0, 2.0 * std::numbers::pi);
    cairo_close_path(m_cairo.get());
    cairo_restore(m_cairo.get());
}

void Canvas::addLine(Point from, Point to)
{
    cairo_move_to(m_cairo.get(), from.x, from.y);
    cairo_line_to(m_cairo.get(), to.x, to.y);
}

void Canvas::setValue(std::uint8_t value)
{
    cairo_set_operator(m_cairo.get(), CAIRO_OPERATOR_SOURCE);
    cairo_set_source_rgba(m_cairo.get(), 0.0, 0.0, 0.0, value / 255.0);
}

void Canvas::fill(std::uint8_t value)
{
    setValue(value);
    cairo_fill(m_cairo.get());
}

void Canvas::stroke(double thickness, std::uint8_t value)
{
    setValue(value);
    cairo_set_line_width(m_cairo.get(), thickness);
    cairo_stroke(m_cairo.get());
}

void Canvas::lighten(double share)
{
    cairo_set_operator(m_cairo.get(), CAIRO_OPERATOR_OVER);
    cairo_set_source_rgba(m_cairo.get(), 0.0, 0.0, 0.0, share);
    cairo_fill(m_cairo.get());
}

void Canvas::fillGradient(Point from, std::uint8_t first, Point to, std::uint8_t last)
{
    cairo_pattern_t* const gradient = cairo_pattern_create_linear(from.x, from.y, to.x, to.y);
    cairo_pattern_add_color_stop_rgba(gradient, 0.0, 0.0, 0.0, 0.0, first / 255.0);
    cairo_pattern_add_color_stop_rgba(gradient, 1.0, 0.0, 0.0, 0.0, last / 255.0);
    cairo_set_operator(m_cairo.get(), CAIRO_OPERATOR_SOURCE);
    cairo_set_source(m_cairo.get(), gradient);
    cairo_pattern_destroy(gradient);
    cairo_fill(m_cairo.get());
}

void Canvas::glow(Point center, double radius, double share)
{
    cairo_pattern_t* const light =
        cairo_pattern_create_radial(center.x, center.y, 0.0, center.x, center.y, radius);
    cairo_pattern_add_color_stop_rgba(light, 0.0, 0.0, 0.0, 0.0, share);
    cairo_pattern_add_color_stop_rgba(light, 1.0, 0.0, 0.0, 0.0, 0.0);
    cairo_set_operator(m_cairo.get(), CAIRO_OPERATOR_OVER);
    cairo_set_source(m_cairo.get(), light);
    cairo_pattern_destroy(light);
    addCircle(center, radius);
    cairo_fill(m_cairo.get());
}

} // namespace zrnsim
