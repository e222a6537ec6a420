#pragma once

#include "frame_numbers.h"

namespace zrnhost
{

/// The rate of a stream as its frames show it, which tells the gaps whose frames `FrameNumbers`
/// surely counts.
///
/// Thread safety: thread-bound.
class StreamPace
{
public:
    /// @param seconds from the frame before to this one
    void noteFrame(double seconds, const FrameStep& step);

    /// Whether a gap is too short for more than `FrameNumbers::countableLoss` frames, a fifth being
    /// left to the error of the rate. @param seconds of the gap
    /// @return false as well while less than a second of stream is known
    bool isCountable(double seconds) const;

private:
    double m_seconds = 0.0;
    quint64 m_periods = 0; ///< of the camera, in these seconds
};

} // namespace zrnhost
