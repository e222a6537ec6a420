#include "pictures/scene.h"
#include "pictures/scene_parts.h"

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
constexpr double kBallRail = 585.0;

// Two gears in mesh: the pitch radii stand in the ratio of the teeth and add up to the distance.
constexpr double kModule = 13.4;
constexpr int kWheelTeeth = 16;
constexpr int kPinionTeeth = 10;
constexpr Point kWheel = {460.0, 440.0};
constexpr double kMeshAngle = -0.78; // from the wheel's axle to the pinion's

void paintGrid(Canvas& canvas)
{
    canvas.addRect(0, 0, canvas.width(), canvas.height());
    canvas.fill(kPaper);
    const int line = canvas.pixels(2.0);
    for (int x = 50; x < 1000; x += 50) {
        canvas.addRect(canvas.column(x), 0, canvas.column(x) + line, canvas.height());
    }
    canvas.fill(kGrid);
    for (int y = 50; y < 800; y += 50) {
        canvas.addRect(0, canvas.row(y), canvas.width(), canvas.row(y) + line);
    }
    canvas.fill(kGrid);
    canvas.addCircle(canvas.at(500.0, 400.0), canvas.length(372.0));
    canvas.stroke(canvas.length(4.0), kWhite);
}

/// A smooth ramp from black to white over ten even steps.
void paintGreys(Canvas& canvas)
{
    constexpr int steps = 10;
    const int middle = canvas.row(190.0);
    canvas.addRect(canvas.column(250.0), canvas.row(150.0), canvas.column(750.0), middle);
    canvas.fillGradient(canvas.at(250.0, 0.0), 0, canvas.at(750.0, 0.0), 255);
    for (int i = 0; i < steps; ++i) {
        canvas.addRect(canvas.column(250.0 + 50.0 * i), middle, canvas.column(300.0 + 50.0 * i),
                       canvas.row(230.0));
        canvas.fill(static_cast<std::uint8_t>(i * 255 / (steps - 1)));
    }
}

/// @param cellWidth,cellHeight in pixels
void paintCheckerboard(Canvas& canvas, Point from, Point to, int cellWidth, int cellHeight)
{
    const int left = canvas.column(from.x);
    const int top = canvas.row(from.y);
    const int right = canvas.column(to.x);
    const int bottom = canvas.row(to.y);
    canvas.addRect(left, top, right, bottom);
    canvas.fill(kInk);
    for (int y = top; y < bottom; y += cellHeight) {
        const int first = (y - top) / cellHeight % 2 == 0 ? left + cellWidth : left;
        for (int x = first; x < right; x += 2 * cellWidth) {
            canvas.addRect(x, y, std::min(x + cellWidth, right), std::min(y + cellHeight, bottom));
        }
    }
    canvas.fill(kWhite);
}

/// Upright bars and fields of a few pixels each, whatever the size of the picture.
void paintGratings(Canvas& canvas)
{
    double x = 260.0;
    for (const int bar : {1, 2, 3, 4, 6, 8}) {
        paintCheckerboard(canvas, {x, 612.0}, {x + 70.0, 682.0}, bar, canvas.height());
        x += 82.0;
    }
    const int large = canvas.pixels(20.0);
    paintCheckerboard(canvas, {80.0, 590.0}, {230.0, 710.0}, large, large);
    for (int i = 0; i < 4; ++i) {
        const Point corner = {i % 2 == 0 ? 770.0 : 845.0, i < 2 ? 590.0 : 650.0};
        paintCheckerboard(canvas, corner, {corner.x + 75.0, corner.y + 60.0}, 1 << i, 1 << i);
    }
}

void paintStar(Canvas& canvas)
{
    constexpr int spokes = 36;
    const Point center = canvas.at(kStar.x, kStar.y);
    const double radius = canvas.length(kStarRadius);
    canvas.addCircle(center, radius);
    canvas.fill(kWhite);
    for (int i = 0; i < spokes; ++i) {
        const double from = 2.0 * pi * i / spokes;
        canvas.addPolygon(
            {center, onCircle(center, radius, from), onCircle(center, radius, from + pi / spokes)});
    }
    canvas.fill(kInk);
    canvas.addCircle(center, radius);
    canvas.stroke(canvas.length(4.0), kInk);
}

void paintChart(Canvas& canvas, const std::string& caption)
{
    paintGrid(canvas);
    paintGreys(canvas);
    paintGratings(canvas);
    paintStar(canvas);
    const int rail = canvas.row(kBallRail + 11.0);
    canvas.addRect(canvas.column(240.0), rail, canvas.column(760.0), rail + canvas.pixels(4.0));
    canvas.fill(kInk);
    paintRim(canvas);
    paintCornerDots(canvas);
    paintPlate(canvas, 112.0, 126.0, 11.0, "A");
    paintPlate(canvas, 500.0, 92.0, 4.0, caption);
}

/// The trail of the sweep fades over a third of a turn; echoes glow when it has just passed them.
void paintRadar(Canvas& canvas, std::uint32_t frameNumber)
{
    constexpr int slices = 24;
    constexpr double slice = 2.0 * pi / 3.0 / slices;
    const double angle = turnOf(frameNumber, 120);
    const Point center = canvas.at(kRadar.x, kRadar.y);
    const double radius = canvas.length(kRadarRadius);
    // How bright something is of which a share of the light is left.
    const auto bright = [](double share) {
        return static_cast<std::uint8_t>(20.0 + 230.0 * share);
    };
    canvas.addCircle(center, radius);
    canvas.fill(bright(0.0));
    for (int i = 0; i < slices; ++i) {
        const double from = angle - slice * i;
        canvas.addPolygon(
            {center, onCircle(center, radius, from), onCircle(center, radius, from - slice)});
        canvas.fill(bright(0.5 * (slices - i) / slices));
    }
    for (int i = 1; i <= 3; ++i) {
        canvas.addCircle(center, radius * i / 3.0);
    }
    canvas.addLine({center.x - radius, center.y}, {center.x + radius, center.y});
    canvas.addLine({center.x, center.y - radius}, {center.x, center.y + radius});
    canvas.stroke(canvas.length(2.0), 90);
    canvas.addLine(center, onCircle(center, radius, angle));
    canvas.stroke(canvas.length(3.0), bright(1.0));

    struct Echo {
        double angle;
        double distance;
        double size;
    };
    constexpr Echo echoes[] = {
        {0.6, 75.0, 7.0}, {2.3, 100.0, 5.0}, {3.9, 48.0, 6.0}, {5.2, 88.0, 8.0}};
    for (const Echo& echo : echoes) {
        const double passed = std::fmod(angle - echo.angle + 2.0 * pi, 2.0 * pi);
        canvas.addCircle(onCircle(center, canvas.length(echo.distance), echo.angle),
                         canvas.length(echo.size));
        canvas.fill(bright(1.0 - 0.85 * passed / (2.0 * pi)));
    }
    canvas.addCircle(center, radius);
    canvas.stroke(canvas.length(6.0), 210);
}

/// @param angle of the middle of the first tooth
void paintGear(Canvas& canvas, Point center, int teeth, double angle, std::uint8_t value)
{
    const double pitchRadius = canvas.length(kModule * teeth / 2.0);
    const double tip = pitchRadius + canvas.length(kModule * 0.85);
    const double root = pitchRadius - canvas.length(kModule);
    const double pitch = 2.0 * pi / teeth;
    std::vector<Point> outline;
    for (int i = 0; i < teeth; ++i) {
        const double middle = angle + pitch * i;
        outline.insert(outline.end(), {onCircle(center, root, middle - 0.32 * pitch),
                                       onCircle(center, tip, middle - 0.13 * pitch),
                                       onCircle(center, tip, middle + 0.13 * pitch),
                                       onCircle(center, root, middle + 0.32 * pitch)});
    }
    canvas.addPolygon(outline);
    canvas.fill(value);
    canvas.addCircle(center, root - canvas.length(8.0));
    canvas.stroke(canvas.length(4.0), kInk);

    constexpr int holes = 5;
    for (int i = 0; i < holes; ++i) {
        canvas.addCircle(onCircle(center, 0.55 * root, angle + 2.0 * pi * i / holes), 0.17 * root);
        // One hole is a bright spot: it shows the turn as a whole, not only tooth by tooth.
        canvas.fill(i == 0 ? std::uint8_t{250} : kInk);
    }
    canvas.addCircle(center, canvas.length(9.0));
    canvas.fill(kWhite);
}

void paintGears(Canvas& canvas, std::uint32_t frameNumber)
{
    // Whole turns of both: ten of the wheel are sixteen of the pinion.
    constexpr std::uint32_t period = 200 * kPinionTeeth;
    const double turned = turnOf(frameNumber, period) * kPinionTeeth;
    const Point wheel = canvas.at(kWheel.x, kWheel.y);
    const double distance = canvas.length(kModule * (kWheelTeeth + kPinionTeeth) / 2.0);
    // A tooth of the wheel and a gap of the pinion meet on the line between the axles.
    const double pinionStart = kMeshAngle + pi + pi / kPinionTeeth;
    paintGear(canvas, wheel, kWheelTeeth, kMeshAngle + turned, 205);
    paintGear(canvas, onCircle(wheel, distance, kMeshAngle), kPinionTeeth,
              pinionStart - turned * kWheelTeeth / kPinionTeeth, 70);
}

/// A ball that runs along the rail and back.
void paintBall(Canvas& canvas, std::uint32_t frameNumber)
{
    const double way = 1.0 - std::abs(2.0 * progressOf(frameNumber, 180) - 1.0);
    const Point center = canvas.at(255.0 + 490.0 * way, kBallRail);
    canvas.addCircle(center, canvas.length(13.0));
    canvas.fill(kInk);
    const double shine = canvas.length(3.0);
    canvas.addCircle({center.x - shine, center.y - shine}, canvas.length(5.0));
    canvas.fill(kWhite);
}

void moveChart(Canvas& canvas, std::uint32_t frameNumber)
{
    paintRadar(canvas, frameNumber);
    paintGears(canvas, frameNumber);
    paintBall(canvas, frameNumber);
    paintFrameNumber(canvas, frameNumber);
}

} // namespace

const Scene kChartScene = {paintChart, moveChart};

} // namespace zrnsim
