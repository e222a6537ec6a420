#include "pictures/scene_plan.h"

#include "pictures/bitmap_font.h"

#include <algorithm>

namespace zrnsim
{

namespace
{

constexpr double kPlanWidth = 1000.0;
constexpr double kPlanHeight = 800.0;
constexpr double kRimUnits = 14.0;
constexpr std::uint8_t kPlateColor = 24;
constexpr std::uint8_t kTextColor = 245;
constexpr std::size_t kNumberDigits = 10;

} // namespace

ScenePlan::ScenePlan(const Canvas& canvas)
    : m_scaleX(canvas.width() / kPlanWidth)
    , m_scaleY(canvas.height() / kPlanHeight)
    , m_unit(std::min(m_scaleX, m_scaleY))
{
}

int ScenePlan::pixels(double units) const
{
    return std::max(1, static_cast<int>(std::lround(length(units))));
}

void paintRim(Canvas& canvas)
{
    constexpr std::uint8_t black = 16;
    constexpr std::uint8_t white = 240;
    const ScenePlan plan(canvas);
    const int depth = plan.pixels(kRimUnits);
    // An odd number of blocks, so that all four corners are black.
    const auto blocksAlong = [depth](int length) {
        return std::max(1, length / (4 * depth)) * 2 + 1;
    };
    const auto edge = [](int length, int block, int blocks) {
        return static_cast<int>(std::int64_t{length} * block / blocks);
    };
    const int width = canvas.width();
    const int height = canvas.height();
    const int across = blocksAlong(width);
    for (int i = 0; i < across; ++i) {
        const std::uint8_t value = i % 2 == 0 ? black : white;
        const int left = edge(width, i, across);
        const int right = edge(width, i + 1, across);
        canvas.fillRect(left, 0, right, depth, value);
        canvas.fillRect(left, height - depth, right, height, value);
    }
    const int down = blocksAlong(height);
    for (int i = 0; i < down; ++i) {
        const std::uint8_t value = i % 2 == 0 ? black : white;
        const int top = edge(height, i, down);
        const int bottom = edge(height, i + 1, down);
        canvas.fillRect(0, top, depth, bottom, value);
        canvas.fillRect(width - depth, top, width, bottom, value);
    }
    canvas.fillRect(0, 0, width, 1, white);
    canvas.fillRect(0, height - 1, width, height, white);
    canvas.fillRect(0, 0, 1, height, white);
    canvas.fillRect(width - 1, 0, width, height, white);
}

void paintCornerDots(Canvas& canvas)
{
    const ScenePlan plan(canvas);
    const double step = plan.length(22.0);
    const double inset = plan.length(38.0);
    const auto right = static_cast<double>(canvas.width());
    const auto bottom = static_cast<double>(canvas.height());
    struct Corner {
        Point first;
        double direction;
        int dots;
    };
    const Corner corners[] = {{{inset, inset}, 1.0, 1},
                              {{right - inset, inset}, -1.0, 2},
                              {{right - inset, bottom - inset}, -1.0, 3},
                              {{inset, bottom - inset}, 1.0, 4}};
    for (const Corner& corner : corners) {
        for (int i = 0; i < corner.dots; ++i) {
            const Point center = {corner.first.x + corner.direction * step * i, corner.first.y};
            canvas.fillEllipse(center, plan.length(9.5), plan.length(9.5), kPlateColor);
            canvas.fillEllipse(center, plan.length(7.0), plan.length(7.0), kTextColor);
        }
    }
}

void paintLabel(Canvas& canvas, double x, double y, const std::string& letter)
{
    const ScenePlan plan(canvas);
    const int dot = plan.pixels(11.0);
    const int left = plan.column(x);
    const int top = plan.row(y);
    canvas.fillRect(left, top, left + (kGlyphWidth + 4) * dot, top + (kGlyphHeight + 4) * dot,
                    kPlateColor);
    canvas.drawText(left + 2 * dot, top + 2 * dot, dot, letter, kTextColor);
}

void paintPlate(Canvas& canvas, double x, double y, double dot, const std::string& text)
{
    const ScenePlan plan(canvas);
    const int size = plan.pixels(dot);
    const int width = textWidth(text) * size;
    const int height = kGlyphHeight * size;
    const int left = plan.column(x) - width / 2;
    const int top = plan.row(y) - height / 2;
    canvas.fillRect(left - 2 * size, top - 2 * size, left + width + 2 * size,
                    top + height + 2 * size, kPlateColor);
    canvas.drawText(left, top, size, text, kTextColor);
}

void paintFrameNumber(Canvas& canvas, std::uint32_t frameNumber)
{
    std::string digits = std::to_string(frameNumber);
    digits.insert(0, kNumberDigits - digits.size(), '0');
    paintPlate(canvas, 500.0, 738.0, 6.0, digits);
}

} // namespace zrnsim
