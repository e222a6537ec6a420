#pragma once

#include "client/frame_numbers.h"

namespace zrn
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

    /// Seconds from one frame of the camera to the next; 0 while it is not known.
    double period() const
    {
        return m_periods == 0 ? 0.0 : m_seconds / static_cast<double>(m_periods);
    }

private:
    double m_seconds = 0.0;
    std::uint64_t m_periods = 0; ///< of the camera, in these seconds
};

} // namespace zrn
