#include "pictures/scene.h"
#include "pictures/scene_plan.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

namespace zrnsim
{

namespace
{

using std::numbers::pi;
constexpr std::uint8_t kPaper = 132;
constexpr std::uint8_t kGrid = 168;
constexpr std::uint8_t kInk = 20;
constexpr std::uint8_t kWhite = 240;

constexpr Point kRadar = {205.0, 400.0};
constexpr double kRadarRadius = 130.0;
constexpr Point kStar = {800.0, 400.0};
constexpr double kStarRadius = 125.0;
constexpr double kRailY = 585.0;

// Two gears in mesh: the pitch radii stand in the ratio of the teeth and add up to the distance.
constexpr double kModule = 13.4;
constexpr int kWheelTeeth = 16;
constexpr int kPinionTeeth = 10;
constexpr Point kWheel = {460.0, 440.0};
constexpr double kMeshAngle = -0.78; // from the wheel's axle to the pinion's

void paintGrid(Canvas& canvas, const ScenePlan& plan)
{
    canvas.fillRect(0, 0, canvas.width(), canvas.height(), kPaper);
    const int line = plan.pixels(2.0);
    for (int x = 50; x < 1000; x += 50) {
        const int left = plan.column(x);
        canvas.fillRect(left, 0, left + line, canvas.height(), kGrid);
    }
    for (int y = 50; y < 800; y += 50) {
        const int top = plan.row(y);
        canvas.fillRect(0, top, canvas.width(), top + line, kGrid);
    }
    canvas.drawRing(plan.at(500.0, 400.0), plan.length(372.0), plan.length(4.0), kWhite);
}

/// A smooth ramp from black to white over ten even steps.
void paintGreys(Canvas& canvas, const ScenePlan& plan)
{
    constexpr int steps = 10;
    const int left = plan.column(250.0);
    const int right = plan.column(750.0);
    const int top = plan.row(150.0);
    const int middle = plan.row(190.0);
    const int bottom = plan.row(230.0);
    for (int x = left; x < right; ++x) {
        const auto value = static_cast<std::uint8_t>(std::int64_t{x - left} * 255 / (right - left));
        canvas.fillRect(x, top, x + 1, middle, value);
    }
    for (int i = 0; i < steps; ++i) {
        canvas.fillRect(plan.column(250.0 + 50.0 * i), middle, plan.column(300.0 + 50.0 * i),
                        bottom, static_cast<std::uint8_t>(i * 255 / (steps - 1)));
    }
}

/// Upright bars of 1, 2, 3, 4, 6 and 8 pixels, whatever the size of the picture.
void paintGratings(Canvas& canvas, const ScenePlan& plan)
{
    constexpr int bars[] = {1, 2, 3, 4, 6, 8};
    double position = 260.0;
    for (const int bar : bars) {
        const int left = plan.column(position);
        const int right = plan.column(position + 70.0);
        for (int x = left; x < right; ++x) {
            const bool white = (x - left) / bar % 2 == 1;
            canvas.fillRect(x, plan.row(612.0), x + 1, plan.row(682.0), white ? kWhite : kInk);
        }
        position += 82.0;
    }
}

/// @param cell in pixels
void paintCheckerboard(Canvas& canvas, int left, int top, int right, int bottom, int cell)
{
    canvas.fillRect(left, top, right, bottom, kInk);
    for (int y = top; y < bottom; y += cell) {
        const int first = (y - top) / cell % 2 == 0 ? left : left + cell;
        for (int x = first; x < right; x += 2 * cell) {
            canvas.fillRect(x, y, std::min(x + cell, right), std::min(y + cell, bottom), kWhite);
        }
    }
}

void paintCheckerboards(Canvas& canvas, const ScenePlan& plan)
{
    paintCheckerboard(canvas, plan.column(80.0), plan.row(590.0), plan.column(230.0),
                      plan.row(710.0), plan.pixels(20.0));
    // Fields of 1, 2, 4 and 8 pixels
    for (int i = 0; i < 4; ++i) {
        const double x = i % 2 == 0 ? 770.0 : 845.0;
        const double y = i < 2 ? 590.0 : 650.0;
        paintCheckerboard(canvas, plan.column(x), plan.row(y), plan.column(x + 75.0),
                          plan.row(y + 60.0), 1 << i);
    }
}

void paintStar(Canvas& canvas, const ScenePlan& plan)
{
    constexpr int spokes = 36;
    const Point center = plan.at(kStar.x, kStar.y);
    const double radius = plan.length(kStarRadius);
    canvas.fillEllipse(center, radius, radius, kWhite);
    for (int i = 0; i < spokes; ++i) {
        const double from = 2.0 * pi * i / spokes;
        const double to = from + pi / spokes;
        const Point spoke[] = {
            center,
            {center.x + radius * std::cos(from), center.y + radius * std::sin(from)},
            {center.x + radius * std::cos(to), center.y + radius * std::sin(to)}};
        canvas.fillPolygon(spoke, kInk);
    }
    canvas.drawRing(center, radius, plan.length(4.0), kInk);
}

void paintRadarScreen(Canvas& canvas, const ScenePlan& plan)
{
    const Point center = plan.at(kRadar.x, kRadar.y);
    const double radius = plan.length(kRadarRadius);
    canvas.fillEllipse(center, radius, radius, kInk);
    for (int i = 1; i <= 3; ++i) {
        canvas.drawRing(center, radius * i / 3.0, plan.length(2.0), 95);
    }
    canvas.drawLine({center.x - radius, center.y}, {center.x + radius, center.y}, plan.length(1.5),
                    80);
    canvas.drawLine({center.x, center.y - radius}, {center.x, center.y + radius}, plan.length(1.5),
                    80);
    canvas.drawRing(center, radius, plan.length(6.0), 210);
}

void paintChart(Canvas& canvas, const std::string& caption)
{
    const ScenePlan plan(canvas);
    paintGrid(canvas, plan);
    paintGreys(canvas, plan);
    paintGratings(canvas, plan);
    paintCheckerboards(canvas, plan);
    paintStar(canvas, plan);
    paintRadarScreen(canvas, plan);
    canvas.fillRect(plan.column(240.0), plan.row(kRailY + 11.0), plan.column(760.0),
                    plan.row(kRailY + 11.0) + plan.pixels(4.0), kInk);
    paintRim(canvas);
    paintCornerDots(canvas);
    paintLabel(canvas, 62.0, 66.0, "A");
    paintPlate(canvas, 500.0, 92.0, 4.0, caption);
}

/// The trail of the sweep fades over a third of a turn; echoes glow when it has just passed them.
void paintSweep(Canvas& canvas, const ScenePlan& plan, std::uint32_t frameNumber)
{
    constexpr std::uint32_t period = 120;
    constexpr int slices = 24;
    constexpr double slice = 2.0 * pi / 3.0 / slices;
    const double angle = turnOf(frameNumber, period);
    const Point center = plan.at(kRadar.x, kRadar.y);
    const double radius = plan.length(kRadarRadius - 4.0);
    const auto rim = [&](double at) {
        return Point{center.x + radius * std::cos(at), center.y + radius * std::sin(at)};
    };
    for (int i = 0; i < slices; ++i) {
        const double from = angle - slice * i;
        const Point wedge[] = {center, rim(from), rim(from - slice)};
        canvas.fillPolygon(wedge, 200, 0.7 * (slices - i) / slices);
    }
    canvas.drawLine(center, rim(angle), plan.length(3.0), 250);

    struct Echo {
        double angle;
        double distance;
        double size;
    };
    constexpr Echo echoes[] = {
        {0.6, 75.0, 7.0}, {2.3, 100.0, 5.0}, {3.9, 48.0, 6.0}, {5.2, 88.0, 8.0}};
    for (const Echo& echo : echoes) {
        const double passed = std::fmod(angle - echo.angle + 2.0 * pi, 2.0 * pi);
        const double distance = plan.length(echo.distance);
        const Point at = {center.x + distance * std::cos(echo.angle),
                          center.y + distance * std::sin(echo.angle)};
        canvas.fillEllipse(at, plan.length(echo.size), plan.length(echo.size), 250,
                           1.0 - 0.85 * passed / (2.0 * pi));
    }
}

/// @param angle of the middle of the first tooth
void paintGear(Canvas& canvas, const ScenePlan& plan, Point center, int teeth, double angle,
               std::uint8_t value)
{
    const double pitchRadius = plan.length(kModule * teeth / 2.0);
    const double tip = pitchRadius + plan.length(kModule * 0.85);
    const double root = pitchRadius - plan.length(kModule * 1.0);
    const double pitch = 2.0 * pi / teeth;
    std::vector<Point> outline;
    const auto corner = [&](double radius, double at) {
        outline.push_back({center.x + radius * std::cos(at), center.y + radius * std::sin(at)});
    };
    for (int i = 0; i < teeth; ++i) {
        const double middle = angle + pitch * i;
        corner(root, middle - 0.32 * pitch);
        corner(tip, middle - 0.13 * pitch);
        corner(tip, middle + 0.13 * pitch);
        corner(root, middle + 0.32 * pitch);
    }
    canvas.fillPolygon(outline, value);
    canvas.drawRing(center, root - plan.length(8.0), plan.length(4.0), kInk);

    constexpr int holes = 5;
    for (int i = 0; i < holes; ++i) {
        const double at = angle + 2.0 * pi * i / holes;
        const Point hole = {center.x + 0.55 * root * std::cos(at),
                            center.y + 0.55 * root * std::sin(at)};
        // One hole is a bright spot: it shows the turn as a whole, not only tooth by tooth.
        canvas.fillEllipse(hole, 0.17 * root, 0.17 * root, i == 0 ? std::uint8_t{250} : kInk);
    }
    canvas.fillEllipse(center, plan.length(13.0), plan.length(13.0), kInk);
    canvas.fillEllipse(center, plan.length(6.0), plan.length(6.0), kWhite);
}

void paintGears(Canvas& canvas, const ScenePlan& plan, std::uint32_t frameNumber)
{
    // Whole turns of both: ten of the wheel are sixteen of the pinion.
    constexpr std::uint32_t period = 200 * kPinionTeeth;
    const double turned = turnOf(frameNumber, period) * kPinionTeeth;
    const Point wheel = plan.at(kWheel.x, kWheel.y);
    const double distance = plan.length(kModule * (kWheelTeeth + kPinionTeeth) / 2.0);
    const Point pinion = {wheel.x + distance * std::cos(kMeshAngle),
                          wheel.y + distance * std::sin(kMeshAngle)};
    // A tooth of the wheel and a gap of the pinion meet on the line between the axles.
    const double pinionStart = kMeshAngle + pi + pi / kPinionTeeth;
    paintGear(canvas, plan, wheel, kWheelTeeth, kMeshAngle + turned, 205);
    paintGear(canvas, plan, pinion, kPinionTeeth, pinionStart - turned * kWheelTeeth / kPinionTeeth,
              70);
}

/// A ball that runs along the rail and back.
void paintBall(Canvas& canvas, const ScenePlan& plan, std::uint32_t frameNumber)
{
    constexpr std::uint32_t period = 180;
    const double phase = static_cast<double>(frameNumber % period) / period;
    const double way = phase < 0.5 ? 2.0 * phase : 2.0 - 2.0 * phase;
    const Point center = plan.at(255.0 + 490.0 * way, kRailY);
    canvas.fillEllipse(center, plan.length(13.0), plan.length(13.0), kInk);
    canvas.fillEllipse({center.x - plan.length(3.0), center.y - plan.length(3.0)}, plan.length(5.0),
                       plan.length(5.0), kWhite);
}

void paintMotion(Canvas& canvas, std::uint32_t frameNumber)
{
    const ScenePlan plan(canvas);
    paintSweep(canvas, plan, frameNumber);
    paintGears(canvas, plan, frameNumber);
    paintBall(canvas, plan, frameNumber);
    paintFrameNumber(canvas, frameNumber);
}

} // namespace

const Scene kChartScene = {paintChart, paintMotion};

} // namespace zrnsim
