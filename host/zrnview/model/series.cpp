#include "zrnview/model/series.h"

#include <algorithm>
#include <cmath>

namespace zrnview
{
namespace
{

bool lessValue(const SeriesPoint& left, const SeriesPoint& right)
{
    return left.value < right.value;
}

} // namespace

void Series::add(double seconds, double value)
{
    if (!m_points.empty() && seconds < newest().seconds) {
        m_points.clear();
    }
    m_points.push_back({seconds, value});
    while (m_points.front().seconds < seconds - m_span) {
        m_points.pop_front();
    }
}

double Series::minimum() const
{
    return isEmpty() ? 0 : std::min_element(m_points.begin(), m_points.end(), lessValue)->value;
}

double Series::maximum() const
{
    return isEmpty() ? 0 : std::max_element(m_points.begin(), m_points.end(), lessValue)->value;
}

double RateMeter::arrived(double seconds)
{
    if (!m_arrivals.empty() && seconds < m_arrivals.back()) {
        m_arrivals.clear();
    }
    m_arrivals.push_back(seconds);
    while (m_arrivals.size() > 2 && m_arrivals.front() < seconds - 1) {
        m_arrivals.pop_front();
    }
    const double elapsed = seconds - m_arrivals.front();
    return elapsed > 0 ? static_cast<double>(m_arrivals.size() - 1) / elapsed : 0;
}

double niceCeiling(double value)
{
    const double power = std::pow(10, std::floor(std::log10(value)));
    for (const double step : {1.0, 2.0, 5.0}) {
        if (value <= step * power * (1 + 1e-9)) {
            return step * power;
        }
    }
    return 10 * power;
}

} // namespace zrnview
