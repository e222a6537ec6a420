#include "client/wall_clock.h"

#include <algorithm>
#include <ctime>
#include <sys/timex.h>

namespace zrn
{
namespace
{

using std::chrono::nanoseconds;

nanoseconds timeOf(clockid_t clock)
{
    timespec time{};
    clock_gettime(clock, &time);
    return std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
}

} // namespace

WallClock::Reading WallClock::read(Kind kind)
{
    constexpr int tries = 5;
    const clockid_t other = kind == Kind::Tai ? CLOCK_TAI : CLOCK_REALTIME;
    Reading best;
    for (int i = 0; i < tries; ++i) {
        const nanoseconds before = timeOf(CLOCK_MONOTONIC);
        const nanoseconds between = timeOf(other);
        const nanoseconds width = timeOf(CLOCK_MONOTONIC) - before;
        // Each of the clocks tells whole nanoseconds.
        const nanoseconds error = width / 2 + nanoseconds(1);
        if (i == 0 || error < best.error) {
            best = {time_point(before + width / 2), between, error};
        }
    }
    return best;
}

nanoseconds WallClock::Reading::distance() const
{
    return other - monotonic.time_since_epoch();
}

bool WallClock::isSetBetween(const Reading& one, const Reading& other)
{
    return std::chrono::abs(other.distance() - one.distance()) > one.error + other.error;
}

void WallClock::note(const Reading& reading)
{
    constexpr std::chrono::seconds pause(1);
    const bool replacesNewest = m_count > 1 && at(0).monotonic - at(1).monotonic < pause &&
                                !isSetBetween(at(1), at(0)) && !isSetBetween(at(0), reading);
    m_count += replacesNewest ? 0 : 1;
    m_readings[(m_count - 1) % capacity] = reading;
}

const WallClock::Reading& WallClock::at(std::size_t age) const
{
    return m_readings[(m_count - 1 - age) % capacity];
}

std::optional<WallTime> WallClock::map(time_point time) const
{
    const std::size_t kept = std::min(m_count, capacity);
    if (kept == 0) {
        return std::nullopt;
    }
    std::size_t age = 0; // of the last reading before that time, or of the first of all
    while (age + 1 < kept && at(age).monotonic > time) {
        ++age;
    }
    const Reading& before = at(age);
    const Reading& after = at(age > 0 && before.monotonic <= time ? age - 1 : age);
    const bool isAfterNearer = after.monotonic - time < time - before.monotonic;
    const Reading& nearest = isAfterNearer ? after : before;
    const nanoseconds step = std::chrono::abs(after.distance() - before.distance());
    return WallTime{time.time_since_epoch() + nearest.distance(),
                    isSetBetween(before, after) ? step + nearest.error
                                                : std::max(before.error, after.error)};
}

std::optional<SystemClock> SystemClock::ask()
{
    timex state{}; // changes nothing
    const int result = adjtimex(&state);
    if (result < 0) {
        return std::nullopt;
    }
    SystemClock clock;
    clock.isSynchronised = result != TIME_ERROR && (state.status & STA_UNSYNC) == 0;
    clock.largestError = std::chrono::microseconds(state.maxerror);
    clock.taiOffset = std::chrono::seconds(state.tai);
    return clock;
}

} // namespace zrn
