#include "zrnview/model/picture.h"

#include <algorithm>
#include <cstdlib>

namespace zrnview
{
namespace
{

using Memory = std::shared_ptr<const void>;

void release(void* memory)
{
    delete static_cast<Memory*>(memory);
}

} // namespace

QImage imageOf(const Frame& frame, const Image& image)
{
    const auto width = static_cast<int>(frame.width);
    const auto height = static_cast<int>(frame.height);
    return {image.pixels().data(),   width, height, width, QImage::Format_Grayscale8, release,
            new Memory(frame.memory)};
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
    for (const Image& image : frame.frame.images()) {
        std::optional<Picture>& picture = image.letter == 'A' ? display.a : display.b;
        picture = {Pyramid(imageOf(frame.frame, image)), histogramOf(image.pixels())};
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
