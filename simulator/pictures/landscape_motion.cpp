#include "pictures/landscape_motion.h"

#include "pictures/scene_plan.h"

#include <cmath>
#include <iterator>
#include <numbers>

namespace zrnsim
{

namespace
{

using std::numbers::pi;

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
    const Point hub = plan.at(kMillHub.x, kMillHub.y);
    for (int i = 0; i < 4; ++i) {
        const double angle = turnOf(frameNumber, period) + pi / 2.0 * i;
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
        const double at = angle + pi / 3.0 * i;
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
    const double angle = std::fmod(distance / wheelRadius, 2.0 * pi);
    constexpr double wheels[] = {22.0, 50.0, 78.0, 112.0, 160.0, 216.0, 264.0, 320.0, 368.0, 424.0};
    for (const double wheel : wheels) {
        paintCartWheel(canvas, plan, place(wheel, wheelRadius), wheelRadius, angle);
    }
}

} // namespace

void paintLandscapeMotion(Canvas& canvas, std::uint32_t frameNumber)
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

} // namespace zrnsim
