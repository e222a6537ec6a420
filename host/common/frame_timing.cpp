#include "common/frame_timing.h"

#include <algorithm>
#include <cmath>

namespace zrnhost
{

using std::chrono::duration;
using std::chrono::duration_cast;
using std::chrono::nanoseconds;

void Line::add(double x, double y)
{
    ++m_count;
    const auto count = static_cast<double>(m_count);
    const double fromMeanX = x - m_meanX;
    const double fromMeanY = y - m_meanY;
    m_meanX += fromMeanX / count;
    m_meanY += fromMeanY / count;
    m_varianceX += fromMeanX * (x - m_meanX);
    m_varianceY += fromMeanY * (y - m_meanY);
    m_covariance += fromMeanX * (y - m_meanY);
}

double Line::slope() const
{
    return m_varianceX > 0 ? m_covariance / m_varianceX : 0.0;
}

double Line::slopeError() const
{
    if (m_count < 3 || m_varianceX <= 0) {
        return 0.0;
    }
    const double residual = std::max(0.0, m_varianceY - slope() * m_covariance);
    return std::sqrt(residual / static_cast<double>(m_count - 2) / m_varianceX);
}

void FrameTiming::addFrame(const zrn::Frame& frame)
{
    if (frame.step.restarted) {
        *this = FrameTiming();
    }
    const zrn::FrameTimes& times = frame.times;
    if (!m_hasFrames) {
        m_start = times.firstPayload;
    } else if (!frame.step.repeated) {
        m_framesOfCamera += frame.step.missing + 1.0;
        if (frame.step.missing == 0) {
            m_intervals.add(times.firstPayload - m_lastFirstPayload);
        }
    }
    m_hasFrames = true;
    m_lastFirstPayload = times.firstPayload;
    m_source = std::min(m_source, times.source);
    m_arrivals.add(m_framesOfCamera, duration<double>(times.firstPayload - m_start).count());
    if (times.source == zrn::FrameTimes::Source::Payload) {
        m_transfers.add(times.lastPayload - times.firstPayload);
        m_handOvers.add(times.handOver - times.lastPayload);
    }
    m_grabs.add(frame.arrival - times.handOver);
    addClock(times);
}

void FrameTiming::addClock(const zrn::FrameTimes& times)
{
    if (!times.sent || times.cameraHz == 0) {
        return;
    }
    const std::uint32_t advance =
        *times.sent - m_lastClock.value_or(*times.sent); // in 32 bits, so that a wrap is none
    const double seconds = duration<double>(times.firstPayload - m_start).count();
    const double advanceOfHost = m_lastClock ? seconds - m_lastClockSeconds : 0.0;
    constexpr double busyMachine = 1.0;
    if (std::abs(static_cast<double>(advance) / times.cameraHz - advanceOfHost) > busyMachine) {
        m_clocks = Line(); // set anew, or wrapped unseen
        m_clock = 0;
    } else {
        m_clock += advance;
    }
    m_lastClock = times.sent;
    m_lastClockSeconds = seconds;
    m_clocks.add(seconds, static_cast<double>(m_clock) / times.cameraHz);
}

Durations FrameTiming::jitter() const
{
    return m_intervals.distancesFrom(duration_cast<nanoseconds>(duration<double>(period())));
}

std::optional<FrameTiming::Drift> FrameTiming::drift() const
{
    constexpr double million = 1e6;
    if (m_clocks.count() < 3) {
        return std::nullopt;
    }
    return Drift{(m_clocks.slope() - 1.0) * million, m_clocks.slopeError() * million};
}

} // namespace zrnhost
