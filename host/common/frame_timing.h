#pragma once

#include "client/frame.h"
#include "common/statistics.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace zrnhost
{

/// The straight line through points, by least squares. Thread safety: thread-bound.
class Line
{
public:
    void add(double x, double y);
    std::uint64_t count() const { return m_count; }

    /// y per x; 0 while all points have one x.
    double slope() const;
    /// Standard error of the slope; 0 with less than three points.
    double slopeError() const;

private:
    std::uint64_t m_count = 0;
    double m_meanX = 0;
    double m_meanY = 0;
    double m_varianceX = 0; // times the count, as the others
    double m_varianceY = 0;
    double m_covariance = 0;
};

/// The rate of a clock whose readings come late, by delays that are never negative and may last for
/// many readings. As in NTP the least delay counts: of each window of time the reading that came
/// soonest, and the line through those. Thread safety: thread-bound.
class DelayedClock
{
public:
    /// Fewer tell no rate.
    static constexpr std::uint64_t fewestWindows = 8;

    /// @param host when the reading came, in seconds, never less than for the one before
    /// @param clock what it says, in seconds
    void add(double host, double clock);

    /// The clock by the host's, through the windows that have ended.
    Line line() const;

private:
    struct Window {
        std::int64_t index = 0; ///< begins at this many widths
        double host = 0;
        double clock = 0;
    };
    /// A window's reading replaces another one's that came later.
    void keepSooner(Window& window, const Window& other) const;
    void doubleWidth();

    static constexpr std::size_t mostWindows = 64; ///< that have ended; then they double
    double m_width = 1.0;                          ///< of a window, in seconds
    std::optional<double> m_rate;  ///< of the clock, once known, so that its drift is no delay
    std::vector<Window> m_windows; ///< the last one is under way
};

/// What the times of a stream's frames tell of camera and cable. Frames before a renumbering are
/// forgotten; so should be those before an outage. A camera whose frames all have one number is
/// taken to send one after another. Thread safety: thread-bound.
class FrameTiming
{
public:
    void addFrame(const zrn::Frame& frame);

    std::uint64_t frames() const { return m_grabs.count(); } ///< that count

    /// Of the frames that count: what the worst of them has.
    zrn::FrameTimes::Source source() const { return m_source; }

    /// From one frame of the camera to the next, in seconds by the host's clock; 0 while unknown.
    double period() const { return m_arrivals.slope(); }
    /// How far the time from one frame to the next was from the period, for frames that follow one
    /// another.
    Durations jitter() const;
    /// First to last payload, and from there to the hand-over, of the frames whose payloads were
    /// seen.
    const Durations& transfers() const { return m_transfers; }
    const Durations& handOvers() const { return m_handOvers; }
    const Durations& grabs() const { return m_grabs; } ///< hand-over to arrival

    /// As jitter(), by the camera's own clock when it sent them; none where it does not tell.
    Durations cameraJitter() const;
    /// From when the camera began to take a frame to when it sent it, by its own clock.
    const Durations& capturedToSent() const { return m_capturedToSent; }

    /// Rate of the camera's clock against the host's, in parts of a million: above 0 it is fast.
    struct Drift {
        double partsPerMillion = 0;
        double error = 0; ///< standard error
    };
    /// @return nothing where the camera tells no clock, and for less than some ten seconds
    std::optional<Drift> drift() const;

private:
    void addClock(const zrn::FrameTimes& times, bool isNext);

    bool m_hasNumbers = false; ///< one has differed from that before it
    zrn::FrameTimes::Source m_source = zrn::FrameTimes::Source::Payload;
    zrn::FrameTimes::time_point m_start;
    double m_framesOfCamera = 0; ///< since the first frame, by numbers; those have hidden bits
    zrn::FrameTimes::time_point m_lastFirstPayload;
    Line m_arrivals; ///< first payload in seconds, by frame number
    Durations m_intervals;
    Durations m_transfers;
    Durations m_handOvers;
    Durations m_grabs;

    bool m_clockIsSent = false; ///< else it is the one of `captured`
    bool m_isClockOfLastFrame = false;
    std::optional<std::uint32_t> m_lastClock;
    double m_lastClockSeconds = 0;
    std::uint64_t m_clock = 0; ///< the camera's, without its wraps
    DelayedClock m_clocks;
    Durations m_sentIntervals;
    Durations m_capturedToSent;
};

} // namespace zrnhost
