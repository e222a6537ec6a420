#pragma once

#include "client/frame_numbers.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace zrnhost
{

/// Collects durations and answers their order statistics: of all of them up to the capacity, and of
/// as many taken at random beyond, so that a stream may last for months. The shortest and the
/// longest are exact. Thread safety: thread-bound.
class Durations
{
public:
    static constexpr std::size_t capacity = 1U << 16U;

    void add(std::chrono::nanoseconds duration);
    std::uint64_t count() const { return m_count; }
    std::size_t kept() const { return m_samples.size(); }

    /// Nearest-rank percentile. @param percent 0 to 100; 100 is the maximum. Zero without samples.
    std::chrono::nanoseconds percentile(double percent) const;
    /// How far they are from this one, on either side. Of these the longest is exact, too.
    Durations distancesFrom(std::chrono::nanoseconds middle) const;

private:
    std::uint64_t m_count = 0;
    std::chrono::nanoseconds m_shortest{};
    std::chrono::nanoseconds m_longest{};
    std::vector<std::chrono::nanoseconds> m_samples;
    std::minstd_rand m_random;
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
