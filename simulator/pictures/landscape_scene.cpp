#include "pictures/landscape_motion.h"
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
constexpr double kHorizon = 440.0;
constexpr double kShore = 545.0;
constexpr Point kSun = {735.0, 170.0};

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
        const double t = x / 1000.0 * 2.0 * pi;
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
    const Point hub = plan.at(kMillHub.x, kMillHub.y);
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

void paintLandscape(Canvas& canvas, const std::string& caption)
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

} // namespace

const Scene kLandscapeScene = {paintLandscape, paintLandscapeMotion};

} // namespace zrnsim
