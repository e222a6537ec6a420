#include "pictures/scene.h"
#include "pictures/scene_parts.h"

#include <cmath>
#include <numbers>
#include <vector>

namespace zrnsim
{

namespace
{

using std::numbers::pi;

// Heights in units
constexpr double kHorizon = 440.0;
constexpr double kShore = 545.0;
constexpr double kRail = 628.0;
constexpr double kFoot = 800.0;

constexpr Point kSun = {735.0, 170.0};
constexpr Point kMillHub = {178.0, 318.0}; // axle of the windmill's sails

/// Fills from one height down to another.
void paintBand(Canvas& canvas, double top, double bottom, std::uint8_t upper, std::uint8_t lower)
{
    canvas.addRect(0, canvas.row(top), canvas.width(), canvas.row(bottom));
    canvas.fillGradient(canvas.at(0.0, top), upper, canvas.at(0.0, bottom), lower);
}

/// A skyline down to the shore, made of waves of three lengths.
void paintRidge(Canvas& canvas, double level, double height, double phase, std::uint8_t value)
{
    std::vector<Point> outline = {canvas.at(1000.0, kShore), canvas.at(0.0, kShore)};
    for (int x = 0; x <= 1000; x += 4) {
        const double t = x / 1000.0 * 2.0 * pi;
        const double wave = 0.55 * std::sin(1.7 * t + phase) +
                            0.3 * std::sin(4.3 * t + 2.1 * phase) +
                            0.15 * std::sin(11.0 * t + 3.7 * phase);
        outline.push_back(canvas.at(x, level - height * (1.0 - std::abs(wave))));
    }
    canvas.addPolygon(outline);
    canvas.fill(value);
}

/// Furrows that run together at the horizon.
void paintField(Canvas& canvas)
{
    paintBand(canvas, kShore, kFoot, 118, 78);
    for (int x = -1500; x <= 2500; x += 125) {
        const double far = 500.0 + (x - 500.0) * 0.3;
        canvas.addPolygon({canvas.at(far - 2.0, kRail + 32.0), canvas.at(far + 2.0, kRail + 32.0),
                           canvas.at(x + 16.0, kFoot), canvas.at(x - 16.0, kFoot)});
    }
    canvas.fill(68);
}

void paintTrack(Canvas& canvas)
{
    canvas.addLine(canvas.at(0.0, kRail + 19.0), canvas.at(1000.0, kRail + 19.0));
    canvas.stroke(canvas.length(30.0), 140);
    for (int x = 6; x < 1000; x += 20) {
        canvas.addLine(canvas.at(x, kRail + 5.0), canvas.at(x, kRail + 15.0));
    }
    canvas.stroke(canvas.length(9.0), 60);
    canvas.addLine(canvas.at(0.0, kRail + 3.0), canvas.at(1000.0, kRail + 3.0));
    canvas.stroke(canvas.length(4.0), 225);
}

void paintTree(Canvas& canvas, Point foot, double size)
{
    canvas.addLine(foot, {foot.x, foot.y - 0.3 * size});
    canvas.stroke(0.08 * size, 30);
    for (int tier = 0; tier < 3; ++tier) {
        const double low = foot.y - size * (0.15 + 0.24 * tier);
        const double half = size * (0.3 - 0.07 * tier);
        canvas.addPolygon(
            {{foot.x - half, low}, {foot.x + half, low}, {foot.x, low - 0.42 * size}});
        canvas.fill(static_cast<std::uint8_t>(38 + 10 * tier));
    }
}

void paintMill(Canvas& canvas)
{
    const Point hub = canvas.at(kMillHub.x, kMillHub.y);
    const double foot = canvas.at(0.0, kShore + 18.0).y;
    const double narrow = canvas.length(26.0);
    const double wide = canvas.length(46.0);
    canvas.addPolygon({{hub.x - narrow, hub.y},
                       {hub.x + narrow, hub.y},
                       {hub.x + wide, foot},
                       {hub.x - wide, foot}});
    canvas.fillGradient({hub.x - wide, 0.0}, 225, {hub.x + wide, 0.0}, 130);
    canvas.addCircle(hub, 1.2 * narrow);
    canvas.fill(60);
    for (int y = 380; y < kShore; y += 55) {
        canvas.addEllipse({hub.x, canvas.at(0.0, y).y}, canvas.length(7.0), canvas.length(10.0));
    }
    canvas.fill(50);
}

/// Unevenness, the same for the same pixel.
void paintGrain(Canvas& canvas)
{
    for (int y = 0; y < canvas.height(); ++y) {
        std::uint8_t* const row = canvas.pixelRow(y);
        for (int x = 0; x < canvas.width(); ++x) {
            std::uint32_t hash = static_cast<std::uint32_t>(x) * 0x9E3779B1U ^
                                 static_cast<std::uint32_t>(y) * 0x85EBCA77U;
            hash = (hash ^ hash >> 15U) * 0x2C1B3C6DU;
            row[x] = static_cast<std::uint8_t>(row[x] - (hash >> 29U)); // nothing is below 7
        }
    }
}

void paintLandscape(Canvas& canvas, const std::string& caption)
{
    paintBand(canvas, 0.0, kHorizon, 112, 220);
    const Point sun = canvas.at(kSun.x, kSun.y);
    canvas.glow(sun, canvas.length(260.0), 0.8);
    canvas.addCircle(sun, canvas.length(42.0));
    canvas.fill(252);
    paintRidge(canvas, kHorizon, 190.0, 0.4, 176);
    paintRidge(canvas, kHorizon, 120.0, 2.6, 146);
    paintBand(canvas, kHorizon, kShore, 178, 120); // a lake
    paintRidge(canvas, kShore - 4.0, 26.0, 5.1, 96);
    paintField(canvas);
    paintTrack(canvas);
    paintMill(canvas);
    struct Tree {
        Point foot;
        double height;
    };
    constexpr Tree trees[] = {{{60.0, 560.0}, 120.0},  {{95.0, 572.0}, 95.0},
                              {{880.0, 566.0}, 135.0}, {{925.0, 580.0}, 170.0},
                              {{840.0, 572.0}, 100.0}, {{300.0, 566.0}, 80.0}};
    for (const auto& [foot, height] : trees) {
        paintTree(canvas, canvas.at(foot.x, foot.y), canvas.length(height));
    }
    paintGrain(canvas);
    paintPlate(canvas, 500.0, 60.0, 4.0, caption);
}

void paintClouds(Canvas& canvas, std::uint32_t frameNumber)
{
    struct Cloud {
        double start;
        double y;
        double size;
        std::uint32_t period;
    };
    struct Puff {
        double x;
        double y;
        double radius;
    };
    constexpr Cloud clouds[] = {
        {0.15, 150.0, 1.0, 1500}, {0.5, 225.0, 0.7, 2100}, {0.85, 120.0, 0.8, 1800}};
    constexpr Puff puffs[] = {
        {-62.0, 8.0, 30.0}, {-24.0, -10.0, 42.0}, {24.0, -4.0, 36.0}, {62.0, 10.0, 26.0}};
    for (const Cloud& cloud : clouds) {
        const double way = std::fmod(cloud.start + progressOf(frameNumber, cloud.period), 1.0);
        const Point center = canvas.at(-120.0 + 1240.0 * way, cloud.y);
        const double size = canvas.length(cloud.size);
        for (const auto& [x, y, radius] : puffs) {
            canvas.addEllipse({center.x + x * size, center.y + y * size}, 1.25 * radius * size,
                              0.8 * radius * size);
        }
    }
    canvas.fill(244);
}

void paintSails(Canvas& canvas, std::uint32_t frameNumber)
{
    const Point hub = canvas.at(kMillHub.x, kMillHub.y);
    for (int i = 0; i < 4; ++i) {
        const double angle = turnOf(frameNumber, 240) + pi / 2.0 * i;
        const auto along = [&](double outward, double aside) {
            return onCircle(onCircle(hub, canvas.length(outward), angle), canvas.length(aside),
                            angle + pi / 2.0);
        };
        canvas.addPolygon(
            {along(28.0, 2.0), along(128.0, 2.0), along(128.0, 26.0), along(28.0, 18.0)});
        canvas.fill(238);
        for (int rung = 42; rung < 128; rung += 17) {
            canvas.addLine(along(rung, 2.0), along(rung, 24.0));
        }
        canvas.stroke(canvas.length(2.0), 90);
        canvas.addLine(hub, along(130.0, 0.0));
        canvas.stroke(canvas.length(5.0), 45);
    }
}

void paintTrain(Canvas& canvas, std::uint32_t frameNumber)
{
    constexpr double trackLength = 1560.0;
    constexpr double wheelRadius = 11.0;
    const double distance = trackLength * progressOf(frameNumber, 360);
    const Point nose = canvas.at(distance - 30.0, kRail);
    // In units from the front of the train and up from the rail.
    const auto place = [&](double back, double up) {
        return Point{nose.x - canvas.length(back), nose.y - canvas.length(up)};
    };
    const auto addBox = [&](double front, double bottom, double length, double height) {
        const Point from = place(front + length, bottom + height);
        const Point to = place(front, bottom);
        canvas.addRect(from.x, from.y, to.x, to.y);
    };

    // Smoke rises and drifts back as it grows thin.
    for (int i = 0; i < 9; ++i) {
        const double age = i + progressOf(frameNumber, 12);
        const double radius = canvas.length(8.0 + 3.2 * age);
        canvas.addEllipse(place(28.0 + 27.0 * age, 92.0 + 9.0 * age), radius, 0.8 * radius);
        canvas.lighten(0.75 * (1.0 - age / 9.5));
    }

    addBox(4.0, 14.0, 128.0, 10.0); // engine: frame,
    addBox(22.0, 58.0, 13.0, 32.0); // chimney,
    addBox(90.0, 80.0, 46.0, 6.0);  // roof
    canvas.fill(40);
    addBox(10.0, 24.0, 84.0, 34.0); // boiler,
    addBox(58.0, 58.0, 16.0, 12.0); // dome,
    addBox(94.0, 24.0, 38.0, 56.0); // cab
    canvas.fill(72);
    std::vector<double> wheels = {22.0, 50.0, 78.0, 112.0};
    for (const double coach : {142.0, 246.0, 350.0}) {
        addBox(coach, 16.0, 92.0, 58.0);
        canvas.fill(coach == 246.0 ? 105 : 190);
        addBox(coach - 2.0, 74.0, 96.0, 6.0);
        canvas.fill(50);
        for (const double window : {8.0, 36.0, 64.0}) {
            addBox(coach + window, 44.0, 20.0, 22.0);
        }
        canvas.fill(240);
        wheels.insert(wheels.end(), {coach + 18.0, coach + 74.0});
    }
    const double angle = std::fmod(distance / wheelRadius, 2.0 * pi);
    const double radius = canvas.length(wheelRadius);
    for (const double wheel : wheels) {
        const Point axle = place(wheel, wheelRadius);
        canvas.addCircle(axle, radius);
        canvas.fill(120);
        canvas.addCircle(axle, 0.85 * radius);
        for (int spoke = 0; spoke < 3; ++spoke) {
            const double at = angle + pi / 3.0 * spoke;
            canvas.addLine(onCircle(axle, 0.9 * radius, at), onCircle(axle, -0.9 * radius, at));
        }
        canvas.stroke(canvas.length(3.0), 28);
    }
}

void moveLandscape(Canvas& canvas, std::uint32_t frameNumber)
{
    paintClouds(canvas, frameNumber);
    paintSails(canvas, frameNumber);
    paintTrain(canvas, frameNumber);
    // Over the clouds and the train, which come and go at the edges
    paintRim(canvas);
    paintCornerDots(canvas);
    paintPlate(canvas, 888.0, 126.0, 11.0, "B");
    paintFrameNumber(canvas, frameNumber);
}

} // namespace

const Scene kLandscapeScene = {paintLandscape, moveLandscape};

} // namespace zrnsim
