#include "zrnview/model/picture.h"

#include <algorithm>
#include <cstdlib>

namespace zrnview
{
namespace
{

using FramePointer = std::shared_ptr<const zrnrecording::Frame>;

void releaseFrame(void* holder)
{
    delete static_cast<FramePointer*>(holder);
}

} // namespace

std::span<const unsigned char> pixelsOf(const zrnrecording::Frame& frame, const Image& image)
{
    return {reinterpret_cast<const unsigned char*>(image.data.constData()),
            static_cast<std::size_t>(frame.width) * static_cast<std::size_t>(frame.height)};
}

QImage imageOf(const FramePointer& frame, const Image& image)
{
    return {pixelsOf(*frame, image).data(), frame->width, frame->height,          frame->width,
            QImage::Format_Grayscale8,      releaseFrame, new FramePointer(frame)};
}

QImage absoluteDifference(const QImage& a, const QImage& b, int amplification)
{
    QImage difference(a.size(), QImage::Format_Grayscale8);
    for (int y = 0; y < a.height(); ++y) {
        const uchar* left = a.constScanLine(y);
        const uchar* right = b.constScanLine(y);
        uchar* out = difference.scanLine(y);
        for (int x = 0; x < a.width(); ++x) {
            const int distance = std::abs(left[x] - right[x]) * amplification;
            out[x] = static_cast<uchar>(std::min(distance, greyLevels - 1));
        }
    }
    return difference;
}

Display prepare(const LiveFrame& frame, int amplification)
{
    Display display;
    display.source = frame;
    for (const Image& image : frame.frame->images) {
        std::optional<Picture>& picture = image.letter == 'A' ? display.a : display.b;
        picture = {Pyramid(imageOf(frame.frame, image)),
                   histogramOf(pixelsOf(*frame.frame, image))};
    }
    if (amplification > 0 && display.a && display.b) {
        const QImage difference =
            absoluteDifference(display.a->pyramid.full(), display.b->pyramid.full(), amplification);
        Picture picture;
        picture.pyramid = Pyramid(difference);
        for (int y = 0; y < difference.height(); ++y) {
            const Histogram row = histogramOf(
                {difference.constScanLine(y), static_cast<std::size_t>(difference.width())});
            for (std::size_t level = 0; level < greyLevels; ++level) {
                picture.histogram.counts[level] += row.counts[level];
            }
            picture.histogram.pixels += row.pixels;
        }
        display.difference = std::move(picture);
    }
    return display;
}

} // namespace zrnview
