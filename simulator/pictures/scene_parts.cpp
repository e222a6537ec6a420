#include "pictures/scene_parts.h"

#include "pictures/bitmap_font.h"

#include <algorithm>
#include <string>

namespace zrnsim
{

namespace
{

constexpr double kRimUnits = 14.0;
constexpr std::uint8_t kPlateColor = 24;
constexpr std::uint8_t kTextColor = 245;
constexpr std::size_t kNumberDigits = 10;

} // namespace

void paintRim(Canvas& canvas)
{
    constexpr std::uint8_t black = 16;
    constexpr std::uint8_t white = 240;
    const int width = canvas.width();
    const int height = canvas.height();
    const int depth = canvas.pixels(kRimUnits);
    const auto paintFrame = [&canvas, width, height](int thickness, std::uint8_t value) {
        const double middle = thickness / 2.0;
        canvas.addRect(middle, middle, width - middle, height - middle);
        canvas.stroke(thickness, value);
    };
    paintFrame(depth, black);
    // The odd ones of an odd number of blocks, so that all four corners are black.
    const auto forEachBlock = [depth](int length, auto add) {
        const int blocks = std::max(1, length / (4 * depth)) * 2 + 1;
        const auto edge = [length, blocks](int block) {
            return static_cast<int>(std::int64_t{length} * block / blocks);
        };
        for (int i = 1; i < blocks; i += 2) {
            add(edge(i), edge(i + 1));
        }
    };
    forEachBlock(width, [&](int left, int right) {
        canvas.addRect(left, 0, right, depth);
        canvas.addRect(left, height - depth, right, height);
    });
    forEachBlock(height, [&](int top, int bottom) {
        canvas.addRect(0, top, depth, bottom);
        canvas.addRect(width - depth, top, width, bottom);
    });
    canvas.fill(white);
    paintFrame(1, white);
}

void paintCornerDots(Canvas& canvas)
{
    const double step = canvas.length(22.0);
    const double inset = canvas.length(38.0);
    const double right = canvas.width() - inset;
    const double bottom = canvas.height() - inset;
    struct Corner {
        Point first;
        double step;
        int dots;
    };
    const Corner corners[] = {{{inset, inset}, step, 1},
                              {{right, inset}, -step, 2},
                              {{right, bottom}, -step, 3},
                              {{inset, bottom}, step, 4}};
    const auto addDots = [&](double radius) {
        for (const Corner& corner : corners) {
            for (int i = 0; i < corner.dots; ++i) {
                canvas.addCircle({corner.first.x + corner.step * i, corner.first.y},
                                 canvas.length(radius));
            }
        }
    };
    addDots(9.5);
    canvas.fill(kPlateColor);
    addDots(7.0);
    canvas.fill(kTextColor);
}

void paintPlate(Canvas& canvas, double x, double y, double dot, std::string_view text)
{
    constexpr int advance = kGlyphWidth + 1;
    const int size = canvas.pixels(dot);
    const int width = (static_cast<int>(text.size()) * advance - 1) * size;
    const int height = kGlyphHeight * size;
    int left = canvas.column(x) - width / 2;
    const int top = canvas.row(y) - height / 2;
    canvas.addRect(left - 2 * size, top - 2 * size, left + width + 2 * size,
                   top + height + 2 * size);
    canvas.fill(kPlateColor);
    for (const char character : text) {
        for (int row = 0; row < kGlyphHeight; ++row) {
            for (int column = 0; column < kGlyphWidth; ++column) {
                if (hasDot(character, column, row)) {
                    canvas.addRect(left + column * size, top + row * size,
                                   left + (column + 1) * size, top + (row + 1) * size);
                }
            }
        }
        left += advance * size;
    }
    canvas.fill(kTextColor);
}

void paintFrameNumber(Canvas& canvas, std::uint32_t frameNumber)
{
    std::string digits = std::to_string(frameNumber);
    digits.insert(0, kNumberDigits - digits.size(), '0');
    paintPlate(canvas, 500.0, 738.0, 6.0, digits);
}

} // namespace zrnsim
