#include "pictures/frame_composer.h"
#include "receiver_model.h"

#include <gtest/gtest.h>

#include <array>
#include <numeric>
#include <set>

namespace
{

using zrnsim::FrameRequest;
using Bytes = std::vector<std::uint8_t>;

FrameRequest plainRequest(int sensorType, int width, int height)
{
    FrameRequest request;
    request.sensorType = sensorType;
    request.width = width;
    request.height = height;
    return request;
}

struct Images {
    Bytes a;
    Bytes b;
};

Images imagesOf(const FrameRequest& request)
{
    Bytes frame;
    zrnsim::FrameComposer().compose(request, frame);
    const ReceivedImages received =
        receiveFrame(request.sensorType, static_cast<std::size_t>(request.width),
                     static_cast<std::size_t>(request.height), frame);
    return {received.a.value(), received.b.value()};
}

double meanOf(const Bytes& image)
{
    return std::accumulate(image.begin(), image.end(), 0.0) / static_cast<double>(image.size());
}

TEST(PictureControls, BrightenWithExposureAndGain)
{
    FrameRequest request = plainRequest(2, 160, 120);
    double last = -1.0;
    for (const double fraction : {0.0, 0.1, 0.25, 0.5, 0.75, 1.0}) {
        request.controls.exposureFraction = fraction;
        const double mean = meanOf(imagesOf(request).b);
        EXPECT_GT(mean, last) << fraction;
        last = mean;
    }
    request.controls.exposureFraction = 0.3;
    last = -1.0;
    for (const double fraction : {0.0, 0.25, 0.5, 0.75, 1.0}) {
        request.controls.gainFraction = fraction;
        const double mean = meanOf(imagesOf(request).a);
        EXPECT_GT(mean, last) << fraction;
        last = mean;
    }
}

TEST(PictureControls, LeaveTheBlackLevelWithoutExposure)
{
    FrameRequest request = plainRequest(14, 64, 48);
    request.controls.exposureFraction = 0.0;
    const Images images = imagesOf(request);
    // The header lies in the first row.
    EXPECT_EQ(std::set<std::uint8_t>(images.a.begin() + 64, images.a.end()).size(), 1U);
    EXPECT_LT(images.a[64], 16);
}

TEST(PictureControls, AreClampedToTheirRange)
{
    FrameRequest request = plainRequest(2, 64, 48);
    request.controls.exposureFraction = 7.0;
    request.controls.gainFraction = -2.0;
    FrameRequest clamped = request;
    clamped.controls.exposureFraction = 1.0;
    clamped.controls.gainFraction = 0.0;
    EXPECT_TRUE(imagesOf(request).a == imagesOf(clamped).a);
}

TEST(PictureControls, ScaleEachCellOfTheMosaic)
{
    const FrameRequest neutral = plainRequest(7, 64, 48);
    const Images before = imagesOf(neutral);
    for (std::size_t cell = 0; cell < 4; ++cell) {
        for (const std::uint8_t gain : {std::uint8_t{64}, std::uint8_t{127}, std::uint8_t{129}}) {
            FrameRequest request = neutral;
            request.controls.colorGain[cell] = gain;
            const Images after = imagesOf(request);
            std::array<int, 4> change{};
            for (std::size_t i = 64; i < after.a.size(); ++i) {
                const std::size_t at = i / 64 % 2 * 2 + i % 2;
                change[at] += after.a[i] - before.a[i] + after.b[i] - before.b[i];
            }
            for (std::size_t other = 0; other < 4; ++other) {
                if (other != cell) {
                    EXPECT_EQ(change[other], 0) << cell << other;
                } else {
                    EXPECT_EQ(change[other] > 0, gain > 128) << cell;
                    EXPECT_NE(change[other], 0) << cell;
                }
            }
        }
    }
}

} // namespace
