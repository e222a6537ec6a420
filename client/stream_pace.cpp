#include "client/stream_pace.h"

namespace zrn
{

void StreamPace::noteFrame(double seconds, const FrameStep& step)
{
    m_seconds += seconds;
    m_periods += 1 + step.missing;
}

bool StreamPace::isCountable(double seconds) const
{
    // Fewer seconds do not tell a rate on a machine that is busy.
    constexpr double enoughSeconds = 1.0;
    constexpr double countable = 0.8 * FrameNumbers::countableLoss;
    return m_seconds >= enoughSeconds &&
           seconds * static_cast<double>(m_periods) <= countable * m_seconds;
}

} // namespace zrn
