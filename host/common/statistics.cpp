#include "common/statistics.h"

#include <algorithm>
#include <cmath>

namespace zrnhost
{

using std::chrono::nanoseconds;

void Durations::add(nanoseconds duration)
{
    m_shortest = m_count == 0 ? duration : std::min(m_shortest, duration);
    m_longest = m_count == 0 ? duration : std::max(m_longest, duration);
    ++m_count;
    if (m_samples.size() < capacity) {
        m_samples.push_back(duration);
        return;
    }
    // Each of those so far stays with the same probability.
    const auto place = std::uniform_int_distribution<std::uint64_t>(0, m_count - 1)(m_random);
    if (place < capacity) {
        m_samples[place] = duration;
    }
}

Durations Durations::distancesFrom(nanoseconds middle) const
{
    Durations result = *this;
    for (nanoseconds& sample : result.m_samples) {
        sample = std::chrono::abs(sample - middle);
    }
    const nanoseconds below = std::chrono::abs(m_shortest - middle);
    const nanoseconds above = std::chrono::abs(m_longest - middle);
    result.m_longest = std::max(below, above);
    result.m_shortest =
        m_samples.empty() ? nanoseconds::zero() : *std::ranges::min_element(result.m_samples);
    return result;
}

nanoseconds Durations::percentile(double percent) const
{
    if (m_samples.empty()) {
        return nanoseconds::zero();
    }
    if (percent <= 0.0 || percent >= 100.0) {
        return percent <= 0.0 ? m_shortest : m_longest;
    }
    std::vector<nanoseconds> ordered = m_samples;
    const auto count = static_cast<double>(ordered.size());
    const double rank = std::clamp(std::ceil(percent / 100.0 * count), 1.0, count);
    const auto position = ordered.begin() + static_cast<std::ptrdiff_t>(rank) - 1;
    std::nth_element(ordered.begin(), position, ordered.end());
    return *position;
}

void StreamAccount::addFrame(const zrn::FrameStep& step, Clock::time_point arrival,
                             nanoseconds wait)
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
