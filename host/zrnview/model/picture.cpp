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
    const int width = a.width();
    for (int y = 0; y < a.height(); ++y) {
        const uchar* left = a.constScanLine(y);
        const uchar* right = b.constScanLine(y);
        uchar* out = difference.scanLine(y);
        for (int x = 0; x < width; ++x) {
            const int distance = std::abs(left[x] - right[x]) * amplification;
            out[x] = static_cast<uchar>(std::min(distance, 255));
        }
    }
    return difference;
}

Display prepare(const LiveFrame& frame, int amplification)
{
    Display display;
    display.source = frame;
    for (const Image& image : frame.frame.images()) {
        (image.letter == 'A' ? display.a : display.b) = imageOf(frame.frame, image);
    }
    if (amplification > 0 && !display.a.isNull() && !display.b.isNull()) {
        display.difference = absoluteDifference(display.a, display.b, amplification);
    }
    return display;
}

} // namespace zrnview
