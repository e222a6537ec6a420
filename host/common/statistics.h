#pragma once

#include "client/frame_numbers.h"

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
    void addFrame(const zrn::FrameStep& step, Clock::time_point arrival,
                  std::chrono::nanoseconds wait);

    std::uint64_t frames() const { return m_grabs.count(); }
    std::uint64_t gaps() const { return m_gaps; }       ///< places where frame numbers are missing
    std::uint64_t missing() const { return m_missing; } ///< frame numbers missing in all
    std::uint64_t repeated() const
    {
        return m_repeated;
    } ///< frames with the number of the one before
    std::uint64_t restarts() const { return m_restarts; } ///< places where the numbers jumped back
    /// Frames per second between the first and the last frame; 0 with less than two.
    double rate() const;
    const Durations& grabs() const { return m_grabs; }

private:
    Durations m_grabs;
    Clock::time_point m_first;
    Clock::time_point m_last;
    std::uint64_t m_gaps = 0;
    std::uint64_t m_missing = 0;
    std::uint64_t m_repeated = 0;
    std::uint64_t m_restarts = 0;
};

} // namespace zrnhost
