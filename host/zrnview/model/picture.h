#pragma once

#include "zrnview/model/frame.h"
#include "zrnview/model/histogram.h"
#include "zrnview/model/pyramid.h"

#include <optional>

namespace zrnview
{

/// An image ready to be drawn, with its histogram.
struct Picture {
    Pyramid pyramid;
    Histogram histogram;
};

/// A frame ready to be shown.
struct Display {
    LiveFrame source;
    std::optional<Picture> a;
    std::optional<Picture> b;
    std::optional<Picture> difference; ///< where wanted and both images are there

    /// Any picture of the frame, A first.
    const Picture* any() const { return a ? &*a : b ? &*b : nullptr; }
};

/// An image of the frame as Qt draws it; shares the frame's bytes and keeps them alive.
QImage imageOf(const Frame& frame, const Image& image);

/// |a - b| of every pixel, multiplied by @p amplification, at most 255. The images have one size.
QImage absoluteDifference(const QImage& a, const QImage& b, int amplification);

/// Prepares a frame for the screen. @param amplification of the difference; 0 for no difference
Display prepare(const LiveFrame& frame, int amplification);

} // namespace zrnview
