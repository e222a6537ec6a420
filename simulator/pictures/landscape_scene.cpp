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

constexpr double kPi = std::numbers::pi;
constexpr double kHorizon = 440.0;
constexpr double kShore = 545.0;
constexpr double kRail = 628.0;
constexpr Point kSun = {735.0, 170.0};
constexpr Point kHub = {178.0, 318.0};

/// Evenly spread, the same for the same pixel: -1 to 1.
double grain(int x, int y)
{
    std::uint32_t hash =
        static_cast<std::uint32_t>(x) * 0x9E3779B1U ^ static_cast<std::uint32_t>(y) * 0x85EBCA77U;
    hash = (hash ^ hash >> 15U) * 0x2C1B3C6DU;
    hash ^= hash >> 13U;
    return static_cast<double>(hash & 0xFFFFU) / 32767.5 - 1.0;
}

/// Fills from one level to another with a gradient and some grain.
void paintBand(Canvas& canvas, const ScenePlan& plan, double top, double bottom, double upper,
               double lower, double roughness)
{
    const int first = plan.row(top);
    const int last = std::min(plan.row(bottom), canvas.height());
    for (int y = first; y < last; ++y) {
        const double value = upper + (lower - upper) * (y - first) / (last - first);
        std::uint8_t* row = canvas.row(y);
        for (int x = 0; x < canvas.width(); ++x) {
            row[x] = static_cast<std::uint8_t>(value + roughness * grain(x, y));
        }
    }
}

/// A skyline down to the horizon, made of waves of three lengths.
void paintRidge(Canvas& canvas, const ScenePlan& plan, double level, double height, double phase,
                double sharpness, std::uint8_t value)
{
    std::vector<Point> outline = {plan.at(0.0, kShore), plan.at(0.0, level)};
    for (int x = 0; x <= 1000; x += 4) {
        const double t = x / 1000.0 * 2.0 * kPi;
        const double wave = 0.55 * std::sin(1.7 * t + phase) +
                            0.3 * std::sin(4.3 * t + 2.1 * phase) +
                            0.15 * std::sin(11.0 * t + 3.7 * phase);
        const double peak = 1.0 - std::pow(std::abs(wave), sharpness);
        outline.push_back(plan.at(x, level - height * peak));
    }
    outline.push_back(plan.at(1000.0, kShore));
    canvas.fillPolygon(outline, value);
}

/// Brighter towards the horizon and around the sun.
void paintSky(Canvas& canvas, const ScenePlan& plan)
{
    const Point sun = plan.at(kSun.x, kSun.y);
    const double reach = plan.length(95.0);
    const int horizon = std::min(plan.row(kHorizon), canvas.height());
    for (int y = 0; y < horizon; ++y) {
        const double sky = 112.0 + 108.0 * y / horizon;
        std::uint8_t* row = canvas.row(y);
        for (int x = 0; x < canvas.width(); ++x) {
            const double glow = 130.0 * std::exp(-std::hypot(x - sun.x, y - sun.y) / reach);
            row[x] = static_cast<std::uint8_t>(std::min(sky + glow + 0.5 * grain(x, y), 250.0));
        }
    }
    canvas.fillEllipse(sun, plan.length(42.0), plan.length(42.0), 252);
}

void paintLake(Canvas& canvas, const ScenePlan& plan)
{
    paintBand(canvas, plan, kHorizon, kShore, 178.0, 120.0, 4.0);
    // Glitter below the sun, wider towards the shore
    for (int i = 0; i < 60; ++i) {
        const double depth = 0.5 + 0.5 * grain(i, 1);
        const double y = kHorizon + 4.0 + depth * (kShore - kHorizon - 10.0);
        const double x = kSun.x + grain(i, 2) * (25.0 + 90.0 * depth);
        const double half = 4.0 + 12.0 * depth;
        canvas.drawLine(plan.at(x - half, y), plan.at(x + half, y), plan.length(1.5 + 1.5 * depth),
                        235, 0.8);
    }
}

void paintTree(Canvas& canvas, const ScenePlan& plan, double x, double y, double height)
{
    const Point foot = plan.at(x, y);
    const double size = plan.length(height);
    canvas.drawLine(foot, {foot.x, foot.y - 0.3 * size}, 0.08 * size, 30);
    for (int tier = 0; tier < 3; ++tier) {
        const double low = foot.y - size * (0.15 + 0.24 * tier);
        const double half = size * (0.3 - 0.07 * tier);
        const Point branches[] = {
            {foot.x - half, low}, {foot.x + half, low}, {foot.x, low - 0.42 * size}};
        canvas.fillPolygon(branches, static_cast<std::uint8_t>(38 + 10 * tier));
    }
}

void paintMill(Canvas& canvas, const ScenePlan& plan)
{
    const Point hub = plan.at(kHub.x, kHub.y);
    const double foot = plan.at(0.0, kShore + 18.0).y;
    const double top = hub.y - plan.length(4.0);
    const double narrow = plan.length(26.0);
    const double wide = plan.length(46.0);
    const Point tower[] = {
        {hub.x - narrow, top}, {hub.x + narrow, top}, {hub.x + wide, foot}, {hub.x - wide, foot}};
    canvas.fillPolygon(tower, 205);
    const Point shade[] = {{hub.x + 0.3 * narrow, top},
                           {hub.x + narrow, top},
                           {hub.x + wide, foot},
                           {hub.x + 0.3 * wide, foot}};
    canvas.fillPolygon(shade, 150);
    const Point cap[] = {{hub.x - 1.2 * narrow, top},
                         {hub.x - 0.8 * narrow, top - plan.length(22.0)},
                         {hub.x, top - plan.length(36.0)},
                         {hub.x + 0.8 * narrow, top - plan.length(22.0)},
                         {hub.x + 1.2 * narrow, top}};
    canvas.fillPolygon(cap, 60);
    for (int y = 380; y < 520; y += 55) {
        canvas.fillEllipse({hub.x - plan.length(6.0), plan.at(0.0, y).y}, plan.length(7.0),
                           plan.length(10.0), 50);
    }
    canvas.fillEllipse({hub.x - plan.length(4.0), foot - plan.length(22.0)}, plan.length(12.0),
                       plan.length(20.0), 40);
}

/// Furrows that run together at the horizon.
void paintField(Canvas& canvas, const ScenePlan& plan)
{
    paintBand(canvas, plan, kShore, 800.0, 118.0, 78.0, 9.0);
    for (int x = -1500; x <= 2500; x += 125) {
        const double far = 500.0 + (x - 500.0) * 0.3;
        const Point furrow[] = {plan.at(far - 2.0, kRail + 32.0), plan.at(far + 2.0, kRail + 32.0),
                                plan.at(x + 16.0, 800.0), plan.at(x - 16.0, 800.0)};
        canvas.fillPolygon(furrow, 58, 0.75);
    }
}

void paintTrack(Canvas& canvas, const ScenePlan& plan)
{
    const Point bank[] = {plan.at(0.0, kRail + 4.0), plan.at(1000.0, kRail + 4.0),
                          plan.at(1000.0, kRail + 34.0), plan.at(0.0, kRail + 34.0)};
    canvas.fillPolygon(bank, 140);
    for (int x = 6; x < 1000; x += 20) {
        canvas.drawLine(plan.at(x, kRail + 5.0), plan.at(x, kRail + 15.0), plan.length(9.0), 60);
    }
    canvas.drawLine(plan.at(0.0, kRail + 3.0), plan.at(1000.0, kRail + 3.0), plan.length(4.0), 225);
}

void paintBackground(Canvas& canvas, const std::string& caption)
{
    const ScenePlan plan(canvas);
    paintSky(canvas, plan);
    paintRidge(canvas, plan, kHorizon, 190.0, 0.4, 0.7, 176);
    paintRidge(canvas, plan, kHorizon, 120.0, 2.6, 0.9, 146);
    paintLake(canvas, plan);
    paintRidge(canvas, plan, kShore - 4.0, 26.0, 5.1, 2.0, 96);
    paintField(canvas, plan);
    paintTrack(canvas, plan);
    paintMill(canvas, plan);
    struct Tree {
        double x;
        double y;
        double height;
    };
    constexpr Tree trees[] = {{60.0, 560.0, 120.0},  {95.0, 572.0, 95.0},   {880.0, 566.0, 135.0},
                              {925.0, 580.0, 170.0}, {840.0, 572.0, 100.0}, {300.0, 566.0, 80.0}};
    for (const Tree& tree : trees) {
        paintTree(canvas, plan, tree.x, tree.y, tree.height);
    }
    paintPlate(canvas, 500.0, 60.0, 4.0, caption);
}

void paintClouds(Canvas& canvas, const ScenePlan& plan, std::uint32_t frameNumber)
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
        const double way =
            cloud.start + static_cast<double>(frameNumber % cloud.period) / cloud.period;
        const Point center = plan.at(-120.0 + 1240.0 * (way - std::floor(way)), cloud.y);
        for (const Puff& puff : puffs) {
            const Point at = {center.x + plan.length(puff.x * cloud.size),
                              center.y + plan.length(puff.y * cloud.size)};
            const double radius = plan.length(puff.radius * cloud.size);
            canvas.fillEllipse(at, 1.25 * radius, 0.8 * radius, 244);
        }
    }
}

void paintSails(Canvas& canvas, const ScenePlan& plan, std::uint32_t frameNumber)
{
    constexpr std::uint32_t period = 240;
    const Point hub = plan.at(kHub.x, kHub.y);
    for (int i = 0; i < 4; ++i) {
        const double angle = turnOf(frameNumber, period) + kPi / 2.0 * i;
        const double cosine = std::cos(angle);
        const double sine = std::sin(angle);
        const auto along = [&](double outward, double aside) {
            return Point{hub.x + plan.length(outward) * cosine - plan.length(aside) * sine,
                         hub.y + plan.length(outward) * sine + plan.length(aside) * cosine};
        };
        const Point sail[] = {along(28.0, 2.0), along(128.0, 2.0), along(128.0, 26.0),
                              along(28.0, 18.0)};
        canvas.fillPolygon(sail, 238, 0.9);
        for (int rung = 42; rung < 128; rung += 17) {
            canvas.drawLine(along(rung, 2.0), along(rung, 24.0), plan.length(2.0), 90);
        }
        canvas.drawLine(hub, along(130.0, 0.0), plan.length(5.0), 45);
    }
    canvas.fillEllipse(hub, plan.length(9.0), plan.length(9.0), 35);
}

void paintBalloon(Canvas& canvas, const ScenePlan& plan, std::uint32_t frameNumber)
{
    const double drift = turnOf(frameNumber, 900);
    const double lift = turnOf(frameNumber, 300);
    const Point center = plan.at(470.0 + 70.0 * std::sin(drift), 235.0 + 28.0 * std::sin(lift));
    const double radius = plan.length(54.0);
    const Point basket = {center.x, center.y + 1.75 * radius};
    for (const double side : {-1.0, 1.0}) {
        canvas.drawLine({center.x + side * 0.7 * radius, center.y + 0.7 * radius},
                        {basket.x + side * 0.16 * radius, basket.y}, plan.length(1.5), 50);
    }
    // Stripes: ever narrower ellipses over one another
    constexpr double widths[] = {1.0, 0.72, 0.36};
    constexpr std::uint8_t values[] = {60, 235, 60};
    for (std::size_t i = 0; i < std::size(widths); ++i) {
        const double half = widths[i] * radius;
        const Point skirt[] = {{center.x - 0.86 * half, center.y + 0.5 * radius},
                               {center.x + 0.86 * half, center.y + 0.5 * radius},
                               {center.x + 0.24 * half, center.y + 1.3 * radius},
                               {center.x - 0.24 * half, center.y + 1.3 * radius}};
        canvas.fillPolygon(skirt, values[i]);
        canvas.fillEllipse(center, half, radius, values[i]);
    }
    const Point box[] = {{basket.x - 0.2 * radius, basket.y},
                         {basket.x + 0.2 * radius, basket.y},
                         {basket.x + 0.16 * radius, basket.y + 0.3 * radius},
                         {basket.x - 0.16 * radius, basket.y + 0.3 * radius}};
    canvas.fillPolygon(box, 45);
}

void paintBirds(Canvas& canvas, const ScenePlan& plan, std::uint32_t frameNumber)
{
    constexpr std::uint32_t crossing = 700;
    const double way = static_cast<double>(frameNumber % crossing) / crossing;
    for (int i = 0; i < 4; ++i) {
        const Point body =
            plan.at(1050.0 - 1150.0 * way + 38.0 * i, 320.0 - 60.0 * way + 14.0 * (i % 3));
        const double flap = plan.length(8.0) *
                            std::sin(turnOf(frameNumber + 9U * static_cast<std::uint32_t>(i), 36));
        const double span = plan.length(15.0);
        canvas.drawLine({body.x - span, body.y - flap}, body, plan.length(3.0), 40);
        canvas.drawLine(body, {body.x + span, body.y - flap}, plan.length(3.0), 40);
    }
}

void paintCartWheel(Canvas& canvas, const ScenePlan& plan, Point center, double radius,
                    double angle)
{
    canvas.fillEllipse(center, plan.length(radius), plan.length(radius), 28);
    canvas.fillEllipse(center, plan.length(0.72 * radius), plan.length(0.72 * radius), 120);
    for (int i = 0; i < 3; ++i) {
        const double at = angle + kPi / 3.0 * i;
        const double x = plan.length(0.9 * radius) * std::cos(at);
        const double y = plan.length(0.9 * radius) * std::sin(at);
        canvas.drawLine({center.x - x, center.y - y}, {center.x + x, center.y + y},
                        plan.length(2.5), 28);
    }
}

/// A box of the train, measured in units from the front of the train and up from the rail.
struct Box {
    double front;
    double bottom;
    double length;
    double height;
    std::uint8_t value;
};

void paintTrain(Canvas& canvas, const ScenePlan& plan, std::uint32_t frameNumber)
{
    constexpr std::uint32_t crossing = 360;
    constexpr double trackLength = 1560.0;
    constexpr double wheelRadius = 11.0;
    const double distance = trackLength * (frameNumber % crossing) / crossing;
    const Point nose = plan.at(distance - 30.0, kRail);
    const auto place = [&](double back, double up) {
        return Point{nose.x - plan.length(back), nose.y - plan.length(up)};
    };

    // Smoke rises and drifts back as it grows thin.
    for (int i = 0; i < 9; ++i) {
        const double age = i + static_cast<double>(frameNumber % 12) / 12.0;
        const double radius = plan.length(8.0 + 3.2 * age);
        canvas.fillEllipse(place(28.0 + 27.0 * age, 92.0 + 9.0 * age), radius, 0.8 * radius, 235,
                           0.75 * (1.0 - age / 9.5));
    }

    constexpr Box boxes[] = {{4.0, 14.0, 128.0, 10.0, 40},   // engine: frame,
                             {10.0, 24.0, 84.0, 34.0, 62},   // boiler,
                             {40.0, 24.0, 6.0, 34.0, 200},   // bands,
                             {70.0, 24.0, 6.0, 34.0, 200},   //
                             {22.0, 58.0, 13.0, 28.0, 45},   // chimney,
                             {19.0, 84.0, 19.0, 6.0, 30},    //
                             {58.0, 58.0, 16.0, 12.0, 90},   // dome,
                             {94.0, 24.0, 38.0, 56.0, 82},   // cab
                             {102.0, 52.0, 20.0, 20.0, 215}, //
                             {90.0, 80.0, 46.0, 6.0, 35},    //
                             {142.0, 16.0, 92.0, 8.0, 40},   // three coaches
                             {142.0, 24.0, 92.0, 50.0, 190}, {140.0, 74.0, 96.0, 6.0, 60},
                             {246.0, 16.0, 92.0, 8.0, 40},   {246.0, 24.0, 92.0, 50.0, 105},
                             {244.0, 74.0, 96.0, 6.0, 40},   {350.0, 16.0, 92.0, 8.0, 40},
                             {350.0, 24.0, 92.0, 50.0, 190}, {348.0, 74.0, 96.0, 6.0, 60}};
    for (const Box& box : boxes) {
        const Point corners[] = {place(box.front, box.bottom),
                                 place(box.front + box.length, box.bottom),
                                 place(box.front + box.length, box.bottom + box.height),
                                 place(box.front, box.bottom + box.height)};
        canvas.fillPolygon(corners, box.value);
    }
    for (int coach = 142; coach < 400; coach += 104) {
        for (int window = 8; window < 80; window += 28) {
            const Point corners[] = {
                place(coach + window, 44.0), place(coach + window + 20.0, 44.0),
                place(coach + window + 20.0, 66.0), place(coach + window, 66.0)};
            canvas.fillPolygon(corners, 240);
        }
    }
    const double angle = std::fmod(distance / wheelRadius, 2.0 * kPi);
    constexpr double wheels[] = {22.0, 50.0, 78.0, 112.0, 160.0, 216.0, 264.0, 320.0, 368.0, 424.0};
    for (const double wheel : wheels) {
        paintCartWheel(canvas, plan, place(wheel, wheelRadius), wheelRadius, angle);
    }
}

void paintMotion(Canvas& canvas, std::uint32_t frameNumber)
{
    const ScenePlan plan(canvas);
    paintClouds(canvas, plan, frameNumber);
    paintBirds(canvas, plan, frameNumber);
    paintBalloon(canvas, plan, frameNumber);
    paintSails(canvas, plan, frameNumber);
    paintTrain(canvas, plan, frameNumber);
    // Over the clouds and the train, which come and go at the edges
    paintRim(canvas);
    paintCornerDots(canvas);
    paintLabel(canvas, 838.0, 66.0, "B");
    paintFrameNumber(canvas, frameNumber);
}

} // namespace

const Scene kLandscapeScene = {paintBackground, paintMotion};

} // namespace zrnsim
