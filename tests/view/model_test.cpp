#include "made_up_frames.h"
#include "zrnview/model/histogram.h"
#include "zrnview/model/newest.h"
#include "zrnview/model/picture.h"
#include "zrnview/model/screen_image.h"
#include "zrnview/model/series.h"
#include "zrnview/model/settings.h"
#include "zrnview/model/view_transform.h"

#include <gtest/gtest.h>

#include <numeric>
#include <thread>

namespace zrnview
{
namespace
{

std::vector<unsigned char> ramp(std::size_t count)
{
    std::vector<unsigned char> pixels(count);
    std::iota(pixels.begin(), pixels.end(), static_cast<unsigned char>(0));
    return pixels;
}

QImage imageFilled(int width, int height, uint value)
{
    QImage image(width, height, QImage::Format_Grayscale8);
    image.fill(value);
    return image;
}

TEST(Histogram, CountsEveryPixelAtAnyLength)
{
    for (const std::size_t length : {0U, 1U, 3U, 4U, 5U, 255U, 256U, 1027U}) {
        const std::vector<unsigned char> pixels = ramp(length);
        const Histogram histogram = histogramOf(pixels);
        std::array<quint32, greyLevels> expected{};
        for (const unsigned char pixel : pixels) {
            ++expected.at(pixel);
        }
        EXPECT_EQ(histogram.counts, expected) << length;
        EXPECT_EQ(histogram.pixels, length);
    }
}

TEST(Histogram, DerivesMeanDeviationExtremesAndClipping)
{
    const std::vector<unsigned char> pixels = {0, 0, 10, 20, 30, 255, 255, 255};
    const Histogram histogram = histogramOf(pixels);
    EXPECT_DOUBLE_EQ(histogram.mean(), 103.125);
    EXPECT_NEAR(histogram.deviation(), 118.0, 0.1);
    EXPECT_EQ(histogram.minimum(), 0);
    EXPECT_EQ(histogram.maximum(), 255);
    EXPECT_DOUBLE_EQ(histogram.darkShare(), 0.25);
    EXPECT_DOUBLE_EQ(histogram.brightShare(), 0.375);
    EXPECT_EQ(histogram.highest(), 3U);
}

TEST(Histogram, OfNothingIsZero)
{
    const Histogram histogram = histogramOf({});
    EXPECT_EQ(histogram.mean(), 0);
    EXPECT_EQ(histogram.deviation(), 0);
    EXPECT_EQ(histogram.minimum(), 0);
    EXPECT_EQ(histogram.maximum(), 0);
    EXPECT_EQ(histogram.darkShare(), 0);
}

TEST(Difference, IsTheAmplifiedDistanceUpToWhite)
{
    QImage a = imageFilled(5, 3, 100);
    QImage b = imageFilled(5, 3, 110);
    a.scanLine(1)[2] = 250;
    b.scanLine(1)[2] = 5;
    const QImage difference = absoluteDifference(a, b, 4);
    EXPECT_EQ(difference.constScanLine(0)[0], 40);
    EXPECT_EQ(difference.constScanLine(2)[4], 40);
    EXPECT_EQ(difference.constScanLine(1)[2], 255);
    EXPECT_EQ(absoluteDifference(b, a, 4), difference);
}

TEST(ScreenImage, HalvesByMeansAndLeavesOutOddEdges)
{
    QImage image(5, 3, QImage::Format_Grayscale8);
    for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 5; ++x) {
            image.scanLine(y)[x] = static_cast<uchar>(10 * y + x);
        }
    }
    const QImage half = halved(image);
    ASSERT_EQ(half.size(), QSize(2, 1));
    EXPECT_EQ(half.constScanLine(0)[0], (0 + 1 + 10 + 11 + 2) / 4);
    EXPECT_EQ(half.constScanLine(0)[1], (2 + 3 + 12 + 13 + 2) / 4);
}

TEST(Picture, OfAFrameHasWhatTheFrameHas)
{
    LiveFrame live;
    live.frame = frameOf(2, 1, {{'B', {1, 255, 'T', 'R', 'A', 'I', 'L', 'E', 'R', '!'}}});
    const Display display = prepare(live, 4);
    EXPECT_TRUE(display.a.isNull());
    EXPECT_TRUE(display.difference.isNull());
    ASSERT_EQ(display.b.size(), QSize(2, 1));
    EXPECT_EQ(display.b.constScanLine(0)[1], 255);
    EXPECT_EQ(display.any(), display.b);
}

TEST(Picture, KeepsTheFrameAliveAndCopiesNothing)
{
    Frame frame = frameOf(4, 2, {{'A', std::vector<std::uint8_t>(16, 'x')}});
    const std::weak_ptr<const void> watch = frame.memory;
    const uchar* bytes = frame.images()[0].bytes.data();
    QImage image = imageOf(frame, frame.images()[0]);
    frame = Frame();
    EXPECT_FALSE(watch.expired());
    EXPECT_EQ(image.constBits(), bytes);
    image = QImage();
    EXPECT_TRUE(watch.expired());
}

TEST(ViewTransform, FitsAndCentres)
{
    ViewTransform transform;
    transform.setSizes(QSize(200, 100), QSizeF(400, 400));
    EXPECT_DOUBLE_EQ(transform.scale(), 2);
    EXPECT_EQ(transform.target(), QRectF(0, 100, 400, 200));
    transform.setSizes(QSize(200, 100), QSizeF(100, 100));
    EXPECT_DOUBLE_EQ(transform.scale(), 0.5);
    EXPECT_TRUE(transform.isFitted());
}

TEST(ViewTransform, ZoomKeepsThePointUnderTheAnchor)
{
    ViewTransform transform;
    transform.setSizes(QSize(1000, 800), QSizeF(500, 400));
    const QPointF anchor(120, 310);
    const QPointF before = transform.toImage(anchor);
    transform.zoomTo(3, anchor);
    EXPECT_DOUBLE_EQ(transform.scale(), 3);
    EXPECT_NEAR(transform.toImage(anchor).x(), before.x(), 1e-9);
    EXPECT_NEAR(transform.toImage(anchor).y(), before.y(), 1e-9);
    EXPECT_FALSE(transform.isFitted());
}

TEST(ViewTransform, NeverLosesTheImage)
{
    ViewTransform transform;
    transform.setSizes(QSize(1000, 800), QSizeF(500, 400));
    transform.zoomTo(2, {0, 0});
    transform.panBy({1e6, 1e6});
    EXPECT_EQ(transform.target().topLeft(), QPointF(0, 0));
    transform.panBy({-1e6, -1e6});
    EXPECT_EQ(transform.target().bottomRight(), QPointF(500, 400));
    transform.zoomTo(1e9, {0, 0});
    EXPECT_DOUBLE_EQ(transform.scale(), ViewTransform::maximumScale);
    transform.zoomTo(1e-9, {0, 0});
    EXPECT_DOUBLE_EQ(transform.scale(), 0.5);
}

TEST(ViewTransform, ShowsAnImageSmallerThanTheViewAtItsOwnSize)
{
    ViewTransform transform;
    transform.setSizes(QSize(100, 100), QSizeF(400, 400));
    transform.zoomTo(1, transform.centre());
    EXPECT_DOUBLE_EQ(transform.scale(), 1);
    EXPECT_EQ(transform.target(), QRectF(150, 150, 100, 100));
}

TEST(ViewTransform, KeepsTheMiddleWhenTheViewIsResized)
{
    ViewTransform transform;
    transform.setSizes(QSize(1000, 1000), QSizeF(400, 400));
    transform.zoomTo(4, {100, 300});
    const QPointF middle = transform.toImage(transform.centre());
    transform.setSizes(QSize(1000, 1000), QSizeF(600, 300));
    EXPECT_NEAR(transform.toImage(transform.centre()).x(), middle.x(), 1e-9);
    EXPECT_NEAR(transform.toImage(transform.centre()).y(), middle.y(), 1e-9);
}

TEST(Series, ForgetsWhatIsOlderThanItsSpan)
{
    Series series(10);
    for (int second = 0; second <= 25; ++second) {
        series.add(second, second * 2);
    }
    EXPECT_EQ(series.points().size(), 11U);
    EXPECT_EQ(series.minimum(), 30);
    EXPECT_EQ(series.maximum(), 50);
}

TEST(Series, StartsAnewWhenTimeGoesBack)
{
    Series series(10);
    series.add(5, 1);
    series.add(6, 2);
    series.add(1, 3);
    ASSERT_EQ(series.points().size(), 1U);
    EXPECT_EQ(series.newest().value, 3);
}

TEST(RateMeter, MeasuresOverTheLastSecond)
{
    RateMeter meter;
    EXPECT_EQ(meter.arrived(0), 0);
    double rate = 0;
    for (int frame = 1; frame <= 90; ++frame) {
        rate = meter.arrived(frame / 30.0);
    }
    EXPECT_NEAR(rate, 30, 0.5);
    for (int frame = 1; frame <= 40; ++frame) {
        rate = meter.arrived(3 + frame / 10.0);
    }
    EXPECT_NEAR(rate, 10, 0.5);
    EXPECT_EQ(meter.arrived(1), 0) << "time went back";
}

TEST(NiceCeiling, IsAOneTwoOrFive)
{
    EXPECT_DOUBLE_EQ(niceCeiling(1), 1);
    EXPECT_DOUBLE_EQ(niceCeiling(1.1), 2);
    EXPECT_DOUBLE_EQ(niceCeiling(31), 50);
    EXPECT_DOUBLE_EQ(niceCeiling(0.07), 0.1);
    EXPECT_DOUBLE_EQ(niceCeiling(600), 1000);
}

TEST(Settings, StandInTheOrderOfTheirEnumeration)
{
    for (const SettingInfo& info : settings()) {
        EXPECT_EQ(infoOf(info.setting).setting, info.setting) << info.label;
        EXPECT_LT(info.minimum, info.maximum) << info.label;
    }
    EXPECT_EQ(settings().size(), static_cast<std::size_t>(Setting::GainCheck) + 1);
}

TEST(Carriers, AColourGainChangesItsPartnerAndRewritesTheOthers)
{
    const Effects effects = effectsOf(Setting::RGain);
    EXPECT_EQ(effects.changed, std::vector{Setting::Gamma});
    EXPECT_EQ(effects.rewritten, (std::vector{Setting::GrGain, Setting::Sharpness, Setting::GbGain,
                                              Setting::Hue, Setting::BGain}));
}

TEST(Carriers, TheBlueGainHasNoPartner)
{
    const Effects effects = effectsOf(Setting::BGain);
    EXPECT_TRUE(effects.changed.empty());
    EXPECT_EQ(effects.rewritten.size(), 6U);
}

TEST(Carriers, ADirectSettingChangesOnlyItsColourGain)
{
    EXPECT_EQ(effectsOf(Setting::Hue).changed, std::vector{Setting::GbGain});
    EXPECT_TRUE(effectsOf(Setting::Hue).rewritten.empty());
    EXPECT_TRUE(effectsOf(Setting::Exposure).changed.empty());
    EXPECT_EQ(carrierOf(Setting::Gain), nullptr);
    EXPECT_TRUE(describeEffects(Setting::Gain).isEmpty());
    EXPECT_EQ(describeEffects(Setting::Gamma), QStringLiteral("also changes R gain"));
}

TEST(LogarithmicScale, MapsEveryPositionBackToItself)
{
    constexpr int steps = 1000;
    for (int position = 0; position <= steps; ++position) {
        const double value = logarithmicValue(position, 100, 500000, steps);
        EXPECT_EQ(logarithmicPosition(value, 100, 500000, steps), position);
    }
    EXPECT_EQ(logarithmicPosition(1, 100, 500000, steps), 0);
    EXPECT_EQ(logarithmicPosition(1e9, 100, 500000, steps), steps);
    EXPECT_EQ(logarithmicPosition(5, 7, 7, steps), 0);
}

TEST(Newest, ForgetsWhatWasNotTaken)
{
    Newest<int> newest;
    EXPECT_FALSE(newest.take());
    newest.put(1);
    newest.put(2);
    EXPECT_EQ(newest.take(), 2);
    EXPECT_FALSE(newest.take());
}

TEST(Newest, ClosingEndsAWait)
{
    Newest<int> newest;
    std::thread waiter([&newest] { EXPECT_FALSE(newest.waitAndTake()); });
    newest.close();
    waiter.join();
}

TEST(Newest, WakesAWaiter)
{
    Newest<int> newest;
    std::optional<int> taken;
    std::thread waiter([&newest, &taken] { taken = newest.waitAndTake(); });
    newest.put(3);
    waiter.join();
    EXPECT_EQ(taken, 3);
}

} // namespace
} // namespace zrnview
