// What is made of images for looking at them.

#include "zrnview/model/bayer.h"
#include "zrnview/model/histogram.h"
#include "zrnview/model/measures.h"
#include "zrnview/model/screen_image.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

namespace zrnview
{
namespace
{

using Level = std::function<int(int x, int y)>;

QImage imageOf(int width, int height, const Level& level)
{
    QImage image(width, height, QImage::Format_Grayscale8);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            image.scanLine(y)[x] = static_cast<uchar>(level(x, y));
        }
    }
    return image;
}

ViewTransform fitted(QSize image, QSizeF view)
{
    ViewTransform transform;
    transform.setSizes(image, view);
    return transform;
}

QRgb grey(int level)
{
    return qRgb(level, level, level);
}

constexpr BayerPattern allPatterns[] = {BayerPattern::Rggb, BayerPattern::Grbg, BayerPattern::Gbrg,
                                        BayerPattern::Bggr};

/// What a sensor with this pattern makes of one colour everywhere.
QImage mosaicOf(BayerPattern pattern, QSize size, QRgb colour)
{
    const std::string letters = nameOf(pattern).toStdString();
    return imageOf(size.width(), size.height(), [&](int x, int y) {
        const char letter = letters.at(static_cast<std::size_t>(y % 2 * 2 + x % 2));
        return letter == 'R' ? qRed(colour) : letter == 'G' ? qGreen(colour) : qBlue(colour);
    });
}

TEST(ScreenImage, AtItsOwnSizeHasThePixelsAsTheyAre)
{
    const QImage image = imageOf(37, 21, [](int x, int y) { return (7 * x + 13 * y) % 256; });
    ViewTransform transform = fitted(image.size(), {50, 40});
    transform.zoomTo(1, transform.centre());
    const ScreenImage screen = screenImage(image, transform);
    ASSERT_EQ(screen.image.size(), image.size());
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            ASSERT_EQ(screen.image.pixel(x, y), grey(image.constScanLine(y)[x])) << x << ' ' << y;
        }
    }
}

TEST(ScreenImage, EnlargedShowsSquaresWhereTheTransformHasThem)
{
    const QImage image = imageOf(9, 7, [](int x, int y) { return 20 * x + y; });
    ViewTransform transform = fitted(image.size(), {60, 60});
    transform.zoomTo(16, {3, 5});
    const ScreenImage screen = screenImage(image, transform);
    EXPECT_EQ(QRect(QPoint(), transform.view().toSize()),
              QRect(screen.position, screen.image.size()));
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QPoint middle = transform.toView({x + 0.5, y + 0.5}).toPoint() - screen.position;
            if (screen.image.rect().contains(middle)) {
                EXPECT_EQ(screen.image.pixel(middle), grey(20 * x + y)) << x << ' ' << y;
            }
        }
    }
}

TEST(ScreenImage, IsNeverLargerThanTheView)
{
    const QImage image = imageOf(640, 480, [](int, int) { return 5; });
    for (const double scale : {0.3, 0.7, 1.0, 3.7, 64.0}) {
        ViewTransform transform = fitted(image.size(), {101, 67});
        transform.zoomTo(scale, {33, 44});
        const ScreenImage screen = screenImage(image, transform);
        EXPECT_TRUE(QRect(0, 0, 101, 67).contains(QRect(screen.position, screen.image.size())))
            << scale;
    }
}

TEST(ScreenImage, MadeSmallHasMeansAndNoMoire)
{
    const QImage stripes = imageOf(400, 300, [](int x, int) { return x % 2 * 200; });
    for (const QSizeF view : {QSizeF(200, 150), QSizeF(130, 100), QSizeF(61, 47), QSizeF(20, 15)}) {
        const ScreenImage screen = screenImage(stripes, fitted(stripes.size(), view));
        for (int x = 1; x + 1 < screen.image.width(); ++x) {
            EXPECT_NEAR(qRed(screen.image.pixel(x, screen.image.height() / 2)), 100, 1)
                << view.width() << " wide, at " << x;
        }
    }
}

TEST(ScreenImage, MadeSmallHasEverythingInItsPlace)
{
    const QImage ramp = imageOf(1000, 10, [](int x, int) { return x / 4; });
    for (const double width : {700.0, 333.0, 120.0}) {
        const ScreenImage screen = screenImage(ramp, fitted(ramp.size(), {width, 40}));
        for (int x = 0; x < screen.image.width(); x += 10) {
            EXPECT_NEAR(qRed(screen.image.pixel(x, 0)), (x + 0.5) / width * 250, 1.6) << x;
        }
    }
}

TEST(ScreenImage, OfAPartIsThatPartOfTheWhole)
{
    const QImage image = imageOf(300, 200, [](int x, int y) { return (x / 3 + y / 2) % 256; });
    for (const BayerPattern pattern : {BayerPattern::None, BayerPattern::Gbrg}) {
        ViewTransform whole = fitted(image.size(), {120, 80});
        ViewTransform part = fitted(image.size(), {60, 40});
        part.zoomTo(0.4, {0, 0});
        part.panBy({-20, -16});
        ASSERT_EQ(part.scale(), whole.scale());
        const ScreenImage all = screenImage(image, whole, pattern);
        const ScreenImage some = screenImage(image, part, pattern);
        const QPoint offset = -part.target().topLeft().toPoint();
        for (int y = 1; y < 39; ++y) {
            for (int x = 1; x < 59; ++x) {
                EXPECT_EQ(some.image.pixel(x, y), all.image.pixel(QPoint(x, y) + offset))
                    << x << ' ' << y;
            }
        }
    }
}

TEST(ScreenImage, MarksSingleClippedPixels)
{
    const QImage image = imageOf(8, 8, [](int x, int y) { return x == 2 ? 0 : y == 5 ? 255 : 9; });
    const ClippingMarks marks{qRgb(0, 0, 255), qRgb(255, 0, 0)};
    const ScreenImage screen =
        screenImage(image, fitted(image.size(), {8, 8}), BayerPattern::None, marks);
    EXPECT_EQ(screen.image.pixel(2, 3), marks.dark);
    EXPECT_EQ(screen.image.pixel(4, 5), marks.bright);
    EXPECT_EQ(screen.image.pixel(4, 4), grey(9));
}

TEST(ScreenImage, HasColoursAtEverySize)
{
    const QRgb colour = qRgb(200, 120, 40);
    for (const BayerPattern pattern : allPatterns) {
        const QImage mosaic = mosaicOf(pattern, {64, 48}, colour);
        for (const double scale : {0.2, 0.5, 0.8, 1.0, 5.0}) {
            ViewTransform transform = fitted(mosaic.size(), {20, 16});
            transform.zoomTo(scale, {10, 10});
            const ScreenImage screen = screenImage(mosaic, transform, pattern);
            for (int y = 0; y < screen.image.height(); ++y) {
                for (int x = 0; x < screen.image.width(); ++x) {
                    ASSERT_EQ(screen.image.pixel(x, y), colour)
                        << nameOf(pattern).toStdString() << " at " << scale << ": " << x << ' '
                        << y;
                }
            }
        }
    }
}

TEST(ScreenImage, OfTheSmallestImages)
{
    for (const QSize size : {QSize(1, 1), QSize(1, 9), QSize(9, 1), QSize(2, 2), QSize(3, 3)}) {
        const QImage image = imageOf(size.width(), size.height(), [](int, int) { return 77; });
        for (const double scale : {0.01, 0.3, 0.6, 1.0, 7.0}) {
            for (const BayerPattern pattern : {BayerPattern::None, BayerPattern::Bggr}) {
                ViewTransform transform = fitted(size, {2, 2});
                transform.zoomTo(scale, {1, 1});
                const ScreenImage screen = screenImage(image, transform, pattern);
                for (int x = 0; x < screen.image.width(); ++x) {
                    EXPECT_EQ(screen.image.pixel(x, 0), grey(77));
                }
            }
        }
    }
}

TEST(Bayer, PatternsHaveNames)
{
    for (const BayerPattern pattern : allPatterns) {
        EXPECT_EQ(bayerPatternOf(nameOf(pattern)), pattern);
    }
    EXPECT_EQ(bayerPatternOf(QStringLiteral("RGB")), BayerPattern::None);
}

TEST(Bayer, KeepsWhatThePixelsHaveAndTakesMeansOfTheRest)
{
    const QImage mosaic = imageOf(4, 4, [](int x, int y) { return 10 * y + x; });
    const ColourPlanes planes = fullSizePlanes(mosaic, BayerPattern::Rggb);
    EXPECT_EQ(planes.red.constScanLine(2)[2], 22);
    EXPECT_EQ(planes.green.constScanLine(2)[2], (12 + 21 + 23 + 32 + 2) / 4);
    EXPECT_EQ(planes.blue.constScanLine(2)[2], (11 + 13 + 31 + 33 + 2) / 4);
    EXPECT_EQ(planes.red.constScanLine(2)[1], (20 + 22 + 1) / 2);
    EXPECT_EQ(planes.blue.constScanLine(2)[1], (11 + 31 + 1) / 2);
    const ColourPlanes half = halfSizePlanes(mosaic, BayerPattern::Rggb);
    EXPECT_EQ(half.red.constScanLine(1)[1], 22);
    EXPECT_EQ(half.green.constScanLine(1)[1], (23 + 32 + 1) / 2);
    EXPECT_EQ(half.blue.constScanLine(1)[1], 33);
}

TEST(Bayer, TellsTheMeansOfTheFourKindsOfPixels)
{
    for (const BayerPattern pattern : allPatterns) {
        const QImage mosaic = mosaicOf(pattern, {10, 8}, qRgb(90, 60, 30));
        const BayerChannels<double> means = channelMeans(mosaic, pattern, QRect(1, 1, 7, 6));
        EXPECT_EQ(means, (BayerChannels<double>{90, 60, 60, 30})) << nameOf(pattern).toStdString();
    }
    const QImage greens = imageOf(4, 4, [](int, int y) { return y % 2 == 0 ? 10 : 20; });
    const auto means = channelMeans(greens, BayerPattern::Rggb, greens.rect());
    EXPECT_EQ(means, (BayerChannels<double>{10, 10, 20, 20})); // green of red rows comes second
}

TEST(WhiteBalance, MakesGreyOfWhatIsGrey)
{
    const auto gains = balancedGains({50, 100, 100, 80}, {60, 64, 64, 64});
    ASSERT_TRUE(gains);
    EXPECT_EQ(*gains, (BayerChannels<int>{120, 64, 64, 80}));
    const auto greens = balancedGains({100, 110, 90, 100}, {100, 100, 100, 100});
    ASSERT_TRUE(greens);
    EXPECT_EQ(*greens, (BayerChannels<int>{100, 91, 111, 100}));
}

TEST(WhiteBalance, StaysWithinTheGainsThatThereAre)
{
    const auto gains = balancedGains({25, 100, 100, 100}, {128, 128, 128, 128});
    ASSERT_TRUE(gains);
    EXPECT_EQ(*gains, (BayerChannels<int>{255, 64, 64, 64}));
}

TEST(WhiteBalance, IsRefusedWhereItCannotBeKnown)
{
    EXPECT_FALSE(balancedGains({0, 100, 100, 100}, {128, 128, 128, 128}));
    EXPECT_FALSE(balancedGains({100, 255, 255, 100}, {128, 128, 128, 128}));
    EXPECT_FALSE(balancedGains({100, 100, 100, 100}, {128, 128, 128, 0}));
}

TEST(Histogram, OfAPartCountsThatPart)
{
    const QImage image = imageOf(10, 10, [](int x, int y) { return x >= 3 && y >= 4 ? 9 : 1; });
    const Histogram histogram = histogramOf(image, QRect(2, 4, 5, 3));
    EXPECT_EQ(histogram.pixels, 15U);
    EXPECT_EQ(histogram.counts.at(9), 12U);
    EXPECT_EQ(histogram.counts.at(1), 3U);
}

TEST(Selection, LiesInTheImage)
{
    EXPECT_EQ(within({{-5, 3}, {40, 90}}, {20, 10}), (Selection{{0, 3}, {19, 9}}));
    EXPECT_EQ((Selection{{7, 2}, {3, 8}}.rectangle()), QRect(3, 2, 5, 7));
    for (const QSize size : {QSize(1, 1), QSize(2, 3), QSize(1280, 1024)}) {
        for (const Selection& selection : {middleOf(size), middleRowOf(size)}) {
            EXPECT_EQ(within(selection, size), selection);
        }
    }
    EXPECT_EQ(middleOf({1280, 1024}).rectangle(), QRect(320, 256, 640, 512));
}

TEST(Profile, HasAllPixelsOfTheLine)
{
    const QImage image = imageOf(20, 10, [](int x, int y) { return 10 * y + x; });
    EXPECT_EQ(profileOf(image, {{2, 3}, {6, 3}}), (std::vector<unsigned char>{32, 33, 34, 35, 36}));
    EXPECT_EQ(profileOf(image, {{4, 9}, {4, 7}}), (std::vector<unsigned char>{94, 84, 74}));
    EXPECT_EQ(profileOf(image, {{0, 0}, {4, 2}}).size(), 5U);
    EXPECT_EQ(profileOf(image, {{0, 0}, {3, 3}}), (std::vector<unsigned char>{0, 11, 22, 33}));
    EXPECT_EQ(profileOf(image, {{19, 9}, {19, 9}}), (std::vector<unsigned char>{109}));
}

TEST(Focus, IsHighestWhereTheEdgesAreSharpest)
{
    const auto edge = [](double width) {
        return imageOf(100, 60, [width](int x, int) {
            return static_cast<int>(std::clamp((x - 50) / width * 100 + 100, 50.0, 150.0));
        });
    };
    double before = 0;
    for (const double width : {40.0, 20.0, 10.0, 4.0, 1.0}) {
        const QImage image = edge(width);
        const double focus = focusMeasure(image, image.rect());
        EXPECT_GT(focus, before) << width;
        before = focus;
    }
}

TEST(Focus, KnowsNeitherExposureNorColourFilters)
{
    const auto scene = [](int factor) {
        return imageOf(64, 64, [factor](int x, int y) {
            return (x / 8 + y / 8) % 2 * 30 * factor + 20 * factor;
        });
    };
    EXPECT_NEAR(focusMeasure(scene(1), QRect(0, 0, 64, 64)),
                focusMeasure(scene(3), QRect(0, 0, 64, 64)), 0.001);
    const QImage mosaic = mosaicOf(BayerPattern::Grbg, {64, 64}, qRgb(220, 120, 30));
    EXPECT_EQ(focusMeasure(mosaic, mosaic.rect()), 0);
}

TEST(Focus, OfRegionsTooSmallToCompareIsZero)
{
    const QImage image = imageOf(9, 9, [](int x, int y) { return 20 * x + y; });
    EXPECT_EQ(focusMeasure(image, QRect(3, 3, 1, 1)), 0);
    EXPECT_EQ(focusMeasure(image, QRect(7, 7, 2, 2)), 0);
    EXPECT_GT(focusMeasure(image, QRect(0, 0, 9, 1)), 0);
}

} // namespace
} // namespace zrnview
