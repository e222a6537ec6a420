#include "common/statistics.h"

#include <algorithm>
#include <cmath>

namespace zrnhost
{

std::chrono::nanoseconds Durations::percentile(double percent) const
{
    if (m_samples.empty()) {
        return std::chrono::nanoseconds::zero();
    }
    std::vector<std::chrono::nanoseconds> ordered = m_samples;
    const auto count = static_cast<double>(ordered.size());
    const double rank = std::clamp(std::ceil(percent / 100.0 * count), 1.0, count);
    const auto position = ordered.begin() + static_cast<std::ptrdiff_t>(rank) - 1;
    std::nth_element(ordered.begin(), position, ordered.end());
    return *position;
}

void StreamAccount::addFrame(const zrn::FrameStep& step, Clock::time_point arrival,
                             std::chrono::nanoseconds wait)
{
    if (m_grabs.count() == 0) {
        m_first = arrival;
    }
    m_last = arrival;
    m_grabs.add(wait);

    m_gaps += step.missing > 0 ? 1 : 0;
    m_missing += step.missing;
    m_repeated += step.repeated ? 1 : 0;
    m_restarts += step.restarted ? 1 : 0;
}

double StreamAccount::rate() const
{
    const std::chrono::duration<double> span = m_last - m_first;
    return span.count() > 0 ? static_cast<double>(frames() - 1) / span.count() : 0.0;
}

} // namespace zrnhost
