#pragma once

#include "zrnview/model/frame.h"

#include <QImage>

namespace zrnview
{

/// A frame ready to be shown. Images that it has not are null.
struct Display {
    LiveFrame source;
    QImage a;
    QImage b;
    QImage difference; ///< where wanted and both images are there

    /// Any image of the frame, A first.
    const QImage& any() const { return a.isNull() ? b : a; }
};

/// An image of the frame as Qt draws it; shares the frame's bytes and keeps them alive.
QImage imageOf(const Frame& frame, const Image& image);

/// |a - b| of every pixel, multiplied by @p amplification, at most 255. The images have one size.
QImage absoluteDifference(const QImage& a, const QImage& b, int amplification);

/// Prepares a frame for the screen. @param amplification of the difference; 0 for no difference
Display prepare(const LiveFrame& frame, int amplification);

} // namespace zrnview
