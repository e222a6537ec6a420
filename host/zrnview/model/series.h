#pragma once

#include <deque>

namespace zrnview
{

/// One value at one time.
struct SeriesPoint {
    double seconds;
    double value;
};

/// The recent values of one quantity, oldest first, over a fixed span of time.
/// Thread safety: thread-bound.
class Series
{
public:
    explicit Series(double spanSeconds)
        : m_span(spanSeconds)
    {
    }

    /// Adds a value and forgets those that are older than the span. A time before the newest value
    /// (a recording that was wound back) starts the series anew.
    void add(double seconds, double value);
    void clear() { m_points.clear(); }

    bool isEmpty() const { return m_points.empty(); }
    const std::deque<SeriesPoint>& points() const { return m_points; }
    const SeriesPoint& newest() const { return m_points.back(); }
    double spanSeconds() const { return m_span; }
    double minimum() const; ///< 0 when empty
    double maximum() const; ///< 0 when empty

private:
    double m_span;
    std::deque<SeriesPoint> m_points;
};

/// Frames per second over the last second of arrivals. Thread safety: thread-bound.
class RateMeter
{
public:
    /// Notes an arrival. @return the rate; 0 until two frames have arrived
    double arrived(double seconds);

private:
    std::deque<double> m_arrivals;
};

/// The next number of the form 1, 2 or 5 times a power of ten that is not below @p value: a full
/// scale that reads well. @param value above 0
double niceCeiling(double value);

} // namespace zrnview
