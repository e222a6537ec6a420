#pragma once

#include <chrono>
#include <optional>

namespace usbguards
{

/// How long a control request to a device may take: long as a rule, short for a moment after one
/// that went unanswered, so that a row of requests to a mute device ends soon.
///
/// The moment begins anew only when a request lapses that had the long limit. A device that is
/// slower than the short one is therefore heard again after it.
///
/// Not thread-safe.
class Patience
{
public:
    using Clock = std::chrono::steady_clock;
    using milliseconds = std::chrono::milliseconds;

    static constexpr milliseconds ordinary{2000};
    static constexpr milliseconds brief{100};
    static constexpr milliseconds briefFor{1000}; ///< after a lapse

    /// Whether the short limit holds.
    [[nodiscard]] bool isBrief(Clock::time_point now) const
    {
        return m_lapse && now - *m_lapse < briefFor;
    }
    [[nodiscard]] milliseconds limit(Clock::time_point now) const
    {
        return isBrief(now) ? brief : ordinary;
    }

    void noteAnswer() { m_lapse.reset(); }
    /// @param wasBrief whether the request had the short limit.
    void noteLapse(bool wasBrief, Clock::time_point now)
    {
        if (!wasBrief) {
            m_lapse = now;
        }
    }

private:
    std::optional<Clock::time_point> m_lapse; ///< of the last request unless it was answered
};

} // namespace usbguards
