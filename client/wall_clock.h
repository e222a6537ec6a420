#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace zrn
{

/// A time of a clock that others share.
struct WallTime {
    std::chrono::nanoseconds sinceEpoch{}; ///< of 1970
    std::chrono::nanoseconds error{};      ///< of the mapping, either way; the clock's own is apart
};

/// Maps times of CLOCK_MONOTONIC to a clock that tells the date, by readings of both that were
/// taken together. The system steers the rate of both alike, so that their distance only changes
/// where the other one is set: between two readings that differ nobody knows when, and the error is
/// as large as the difference. Before the oldest reading that is kept and after the newest, nobody
/// knows whether it was set at all.
///
/// Thread safety: thread-bound; a copy is another object.
class WallClock
{
public:
    using time_point = std::chrono::steady_clock::time_point;

    /// Both clocks at one moment.
    struct Reading {
        time_point monotonic;
        std::chrono::nanoseconds other{};
        std::chrono::nanoseconds error{}; ///< of their distance, either way

        [[nodiscard]] std::chrono::nanoseconds distance() const;
    };

    enum class Kind {
        Realtime, ///< CLOCK_REALTIME: UTC, set and with leap seconds
        Tai,      ///< CLOCK_TAI: without leap seconds, where somebody told the kernel their number
    };
    /// Reads both clocks, some times over, and answers the reading that took the shortest.
    static Reading read(Kind kind);

    /// Takes a reading later than those before. Of readings that agree, one in a second or so is
    /// kept, and the newest.
    void note(const Reading& reading);

    /// @return nothing while there is no reading
    [[nodiscard]] std::optional<WallTime> map(time_point time) const;

private:
    /// A reading per second: four minutes.
    static constexpr std::size_t capacity = 256;

    /// Whether they differ by more than their errors.
    static bool isSetBetween(const Reading& one, const Reading& other);
    [[nodiscard]] const Reading& at(std::size_t age) const; ///< 0 is the newest

    std::array<Reading, capacity> m_readings{};
    std::size_t m_count = 0; ///< ever noted
};

/// How the kernel keeps the system's time.
struct SystemClock {
    bool isSynchronised = false;
    std::chrono::microseconds largestError{}; ///< as whoever synchronises it estimates
    std::chrono::seconds taiOffset{};         ///< 0: nobody has told

    /// @return nothing where the system does not let the process ask
    static std::optional<SystemClock> ask();
};

} // namespace zrn
