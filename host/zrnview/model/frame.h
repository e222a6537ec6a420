#pragma once

#include "client/frame.h"

#include <QtGlobal>

#include <chrono>

namespace zrnview
{

using Clock = std::chrono::steady_clock;
using zrn::Frame;
using zrn::Image;

/// One frame on its way from a camera or a recording to the screen.
struct LiveFrame {
    Frame frame;
    bool isFirst = false;         ///< of its stream or recording
    double seconds = 0;           ///< when it arrived, on the source's clock
    Clock::time_point handedOver; ///< when it entered this program
    double waitMilliseconds = 0;  ///< how long the grab waited for it and unpacked it
};

/// Facts about one frame, for the running plots. Frames that are not displayed are counted too.
struct FrameSample {
    double seconds = 0;
    quint32 number = 0;
    bool isFirst = false; ///< of its stream or recording
    quint32 missing = 0;  ///< numbers skipped since the frame before
    double rate = 0;      ///< frames per second over the last second
    double waitMilliseconds = 0;
};

} // namespace zrnview
