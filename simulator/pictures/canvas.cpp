#include "pictures/canvas.h"

#include "pictures/bitmap_font.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace zrnsim
{

namespace
{

constexpr int kLinesPerRow = 4;      // sample lines of a pixel row
constexpr int kCoveragePerLine = 32; // of a pixel that one line crosses entirely
constexpr int kFullCoverage = kLinesPerRow * kCoveragePerLine;
constexpr int kGlyphAdvance = kGlyphWidth + 1;

std::vector<Point> ellipse(Point center, double radiusX, double radiusY)
{
    // Enough corners that the outline stays within a small part of a pixel of the curve.
    const double radius = std::max(radiusX, radiusY);
    const int corners = std::clamp(static_cast<int>(4.0 * std::sqrt(radius)), 12, 256);
    std::vector<Point> outline(static_cast<std::size_t>(corners));
    for (int i = 0; i < corners; ++i) {
        const double angle = 2.0 * std::numbers::pi * i / corners;
        outline[static_cast<std::size_t>(i)] = {center.x + radiusX * std::cos(angle),
                                                center.y + radiusY * std::sin(angle)};
    }
    return outline;
}

/// Mixes a value into pixels. Everything fits 16 bits, so that many pixels go through one
/// instruction.
/// @param weight opacity in 1/256
void blend(std::uint8_t* pixels, const std::uint16_t* coverage, std::size_t count,
           std::uint8_t value, std::uint16_t weight)
{
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint16_t covered = std::min<std::uint16_t>(coverage[i], kFullCoverage);
        const auto alpha =
            static_cast<std::uint16_t>(static_cast<std::uint16_t>(covered * weight) >> 8);
        const auto mixed =
            static_cast<std::uint16_t>(pixels[i] * (kFullCoverage - alpha) + value * alpha);
        pixels[i] = static_cast<std::uint8_t>(mixed / kFullCoverage);
    }
}

} // namespace

Canvas::Canvas(int width, int height)
    : m_width(width)
    , m_height(height)
    , m_pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height))
    , m_coverage(static_cast<std::size_t>(width))
{
}

void Canvas::fillRect(int left, int top, int right, int bottom, std::uint8_t value)
{
    left = std::max(left, 0);
    right = std::min(right, m_width);
    bottom = std::min(bottom, m_height);
    if (left >= right) {
        return;
    }
    for (int y = std::max(top, 0); y < bottom; ++y) {
        std::fill(row(y) + left, row(y) + right, value);
    }
}

void Canvas::addSpan(double from, double to)
{
    from = std::clamp(from, 0.0, static_cast<double>(m_width));
    to = std::clamp(to, 0.0, static_cast<double>(m_width));
    if (from >= to) {
        return;
    }
    const auto first = static_cast<std::size_t>(from);
    const auto last = static_cast<std::size_t>(to);
    const auto part = [](double width) {
        return static_cast<std::uint16_t>(std::lrint(width * kCoveragePerLine));
    };
    const auto add = [this](std::size_t x, std::uint16_t coverage) {
        m_coverage[x] = static_cast<std::uint16_t>(m_coverage[x] + coverage);
    };
    if (first == last) {
        add(first, part(to - from));
        return;
    }
    add(first, part(static_cast<double>(first + 1) - from));
    for (std::size_t x = first + 1; x < last; ++x) {
        add(x, kCoveragePerLine);
    }
    if (last < m_coverage.size()) {
        add(last, part(to - static_cast<double>(last)));
    }
}

void Canvas::fillPolygon(std::span<const Point> outline, std::uint8_t value, double opacity)
{
    if (outline.size() < 3 || m_width == 0) {
        return;
    }
    const auto [left, right] = std::minmax_element(outline.begin(), outline.end(),
                                                   [](Point a, Point b) { return a.x < b.x; });
    const auto [upper, lower] = std::minmax_element(outline.begin(), outline.end(),
                                                    [](Point a, Point b) { return a.y < b.y; });
    const auto within = [](double position, int limit) {
        return static_cast<int>(std::clamp(position, 0.0, static_cast<double>(limit)));
    };
    const int top = within(std::floor(upper->y), m_height);
    const int bottom = within(std::ceil(lower->y), m_height);
    const int begin = within(std::floor(left->x), m_width);
    const int end = within(std::ceil(right->x), m_width);
    const auto weight =
        static_cast<std::uint16_t>(std::lround(std::clamp(opacity, 0.0, 1.0) * 256.0));

    for (int y = top; y < bottom; ++y) {
        std::fill(m_coverage.begin() + begin, m_coverage.begin() + end, std::uint16_t{0});
        for (int line = 0; line < kLinesPerRow; ++line) {
            const double at = y + (line + 0.5) / kLinesPerRow;
            m_crossings.clear();
            Point previous = outline.back();
            for (const Point& corner : outline) {
                if ((previous.y <= at) != (corner.y <= at)) {
                    m_crossings.push_back(previous.x + (at - previous.y) * (corner.x - previous.x) /
                                                           (corner.y - previous.y));
                }
                previous = corner;
            }
            std::sort(m_crossings.begin(), m_crossings.end());
            for (std::size_t i = 0; i + 1 < m_crossings.size(); i += 2) {
                addSpan(m_crossings[i], m_crossings[i + 1]);
            }
        }
        blend(row(y) + begin, m_coverage.data() + begin, static_cast<std::size_t>(end - begin),
              value, weight);
    }
}

void Canvas::fillEllipse(Point center, double radiusX, double radiusY, std::uint8_t value,
                         double opacity)
{
    fillPolygon(ellipse(center, radiusX, radiusY), value, opacity);
}

void Canvas::drawRing(Point center, double radius, double thickness, std::uint8_t value,
                      double opacity)
{
    // Outer and inner circle as one outline; the seam between them is passed twice and so has no
    // area.
    std::vector<Point> outline =
        ellipse(center, radius + thickness / 2.0, radius + thickness / 2.0);
    outline.push_back(outline.front());
    std::vector<Point> inner = ellipse(center, radius - thickness / 2.0, radius - thickness / 2.0);
    inner.push_back(inner.front());
    outline.insert(outline.end(), inner.begin(), inner.end());
    fillPolygon(outline, value, opacity);
}

void Canvas::drawLine(Point from, Point to, double thickness, std::uint8_t value, double opacity)
{
    const double length = std::hypot(to.x - from.x, to.y - from.y);
    if (length <= 0.0) {
        return;
    }
    const double nx = (from.y - to.y) / length * thickness / 2.0;
    const double ny = (to.x - from.x) / length * thickness / 2.0;
    const Point outline[] = {{from.x + nx, from.y + ny},
                             {to.x + nx, to.y + ny},
                             {to.x - nx, to.y - ny},
                             {from.x - nx, from.y - ny}};
    fillPolygon(outline, value, opacity);
}

void Canvas::drawText(int left, int top, int dot, std::string_view text, std::uint8_t value)
{
    for (const char character : text) {
        const Glyph& glyph = glyphOf(character);
        for (int y = 0; y < kGlyphHeight; ++y) {
            for (int x = 0; x < kGlyphWidth; ++x) {
                if ((glyph[static_cast<std::size_t>(y)] >> (kGlyphWidth - 1 - x) & 1) != 0) {
                    fillRect(left + x * dot, top + y * dot, left + (x + 1) * dot,
                             top + (y + 1) * dot, value);
                }
            }
        }
        left += kGlyphAdvance * dot;
    }
}

int textWidth(std::string_view text)
{
    return text.empty() ? 0 : static_cast<int>(text.size()) * kGlyphAdvance - 1;
}

} // namespace zrnsim
