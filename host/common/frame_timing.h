#pragma once

#include "client/frame.h"
#include "common/statistics.h"

#include <cstdint>
#include <optional>

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

/// What the times of a stream's frames tell of camera and cable. Frames before a renumbering are
/// forgotten; so should be those before an outage. Thread safety: thread-bound.
class FrameTiming
{
public:
    void addFrame(const zrn::Frame& frame);

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

    /// Rate of the camera's clock against the host's, in parts of a million: above 0 it is fast.
    struct Drift {
        double partsPerMillion = 0;
        double error = 0; ///< standard error
    };
    /// @return nothing where the camera tells no clock, and for less than three frames
    std::optional<Drift> drift() const;

private:
    void addClock(const zrn::FrameTimes& times);

    bool m_hasFrames = false;
    zrn::FrameTimes::Source m_source = zrn::FrameTimes::Source::Payload;
    zrn::FrameTimes::time_point m_start;
    double m_framesOfCamera = 0; ///< since the first frame, by numbers; those have hidden bits
    zrn::FrameTimes::time_point m_lastFirstPayload;
    Line m_arrivals; ///< first payload in seconds, by frame number
    Durations m_intervals;
    Durations m_transfers;
    Durations m_handOvers;
    Durations m_grabs;

    std::optional<std::uint32_t> m_lastClock;
    double m_lastClockSeconds = 0;
    std::uint64_t m_clock = 0; ///< the camera's, without its wraps
    Line m_clocks;             ///< the camera's in seconds, by the host's
};

} // namespace zrnhost
