#pragma once

#include "common/frame_numbers.h"

#include <chrono>
#include <vector>

namespace zrnhost
{

/// Collects durations and answers their order statistics. Thread safety: thread-bound.
class Durations
{
public:
    void add(std::chrono::nanoseconds duration) { m_samples.push_back(duration); }
    std::size_t count() const { return m_samples.size(); }

    /// Nearest-rank percentile. @param percent 0 to 100; 100 is the maximum. Zero without samples.
    std::chrono::nanoseconds percentile(double percent) const;

private:
    std::vector<std::chrono::nanoseconds> m_samples;
};

/// Account of a stream: how many frames, how fast, how many missing. Thread safety: thread-bound.
class StreamAccount
{
public:
    using Clock = std::chrono::steady_clock;

    /// Notes a frame that a grab delivered after waiting for @p wait.
    FrameStep addFrame(quint64 trailer, Clock::time_point arrival, std::chrono::nanoseconds wait);

    quint64 frames() const { return m_grabs.count(); }
    quint64 gaps() const { return m_gaps; }         ///< places where frame numbers are missing
    quint64 missing() const { return m_missing; }   ///< frame numbers missing in all
    quint64 repeated() const { return m_repeated; } ///< frames with the number of the one before
    quint64 restarts() const { return m_restarts; } ///< places where the numbers jumped back
    /// Frames per second between the first and the last frame; 0 with less than two.
    double rate() const;
    const Durations& grabs() const { return m_grabs; }

private:
    FrameNumbers m_numbers;
    Durations m_grabs;
    Clock::time_point m_first;
    Clock::time_point m_last;
    quint64 m_gaps = 0;
    quint64 m_missing = 0;
    quint64 m_repeated = 0;
    quint64 m_restarts = 0;
};

} // namespace zrnhost
