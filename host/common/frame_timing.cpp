#include "common/frame_timing.h"

#include <algorithm>
#include <cmath>
#include <utility>

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

void DelayedClock::add(double host, double clock)
{
    Window window{static_cast<std::int64_t>(host / m_width), host, clock};
    if (!m_windows.empty() && window.index <= m_windows.back().index) {
        keepSooner(m_windows.back(), window);
        return;
    }
    if (m_windows.size() == mostWindows) {
        doubleWidth();
        add(host, clock);
        return;
    }
    if (const Line known = line(); known.count() >= fewestWindows) {
        constexpr double muchInAWindow = 1e-4;
        if (!m_rate && std::abs(known.slope() - 1.0) > muchInAWindow) {
            m_windows.clear(); // chosen by the drift rather than by the delay
        }
        m_rate = known.slope();
    }
    m_windows.push_back(window);
}

void DelayedClock::keepSooner(Window& window, const Window& other) const
{
    const auto lateness = [this](const Window& of) {
        return of.host - of.clock / m_rate.value_or(1.0);
    };
    if (lateness(other) < lateness(window)) {
        window.host = other.host;
        window.clock = other.clock;
    }
}

void DelayedClock::doubleWidth()
{
    m_width *= 2;
    std::vector<Window> wider;
    for (Window& window : m_windows) {
        window.index /= 2;
        if (!wider.empty() && wider.back().index == window.index) {
            keepSooner(wider.back(), window);
        } else {
            wider.push_back(window);
        }
    }
    m_windows = std::move(wider);
}

Line DelayedClock::line() const
{
    Line line;
    for (std::size_t i = 0; i + 1 < m_windows.size(); ++i) {
        line.add(m_windows[i].host, m_windows[i].clock);
    }
    return line;
}

void FrameTiming::addFrame(const zrn::Frame& frame)
{
    const bool isNumbered = m_grabs.count() > 0 && !frame.step.repeated;
    const bool hadOneNumber = !m_hasNumbers && m_grabs.count() > 1;
    if (frame.step.restarted || (isNumbered && hadOneNumber)) {
        *this = FrameTiming();
    }
    m_hasNumbers = m_hasNumbers || isNumbered;
    const zrn::FrameTimes& times = frame.times;
    const bool isFirst = m_grabs.count() == 0;
    const bool isCounted = !isFirst && !(frame.step.repeated && m_hasNumbers);
    const bool isNext = isCounted && frame.step.missing == 0;
    if (isFirst) {
        m_start = times.firstPayload;
    } else if (isCounted) {
        m_framesOfCamera += frame.step.missing + 1.0;
    }
    if (isNext) {
        m_intervals.add(times.firstPayload - m_lastFirstPayload);
    }
    m_lastFirstPayload = times.firstPayload;
    m_source = std::min(m_source, times.source);
    m_arrivals.add(m_framesOfCamera, duration<double>(times.firstPayload - m_start).count());
    if (times.source == zrn::FrameTimes::Source::Payload) {
        m_transfers.add(times.lastPayload - times.firstPayload);
        m_handOvers.add(times.handOver - times.lastPayload);
    }
    m_grabs.add(frame.arrival - times.handOver);
    addClock(times, isNext);
}

void FrameTiming::addClock(const zrn::FrameTimes& times, bool isNext)
{
    const std::optional<std::uint32_t>& clock = times.sent ? times.sent : times.captured;
    if (!clock || times.cameraHz == 0 || (m_clockIsSent && !times.sent)) {
        m_isClockOfLastFrame = false;
        return;
    }
    const auto seconds = [&times](auto ticks) {
        return duration<double>(static_cast<double>(ticks) / times.cameraHz);
    };
    const auto ofClock = [&seconds](auto ticks) {
        return duration_cast<nanoseconds>(seconds(ticks));
    };
    if (times.sent && times.captured) {
        m_capturedToSent.add(ofClock(static_cast<std::int32_t>(*times.sent - *times.captured)));
    }
    const bool isOther = m_clockIsSent != times.sent.has_value();
    const std::uint32_t advance =
        *clock - m_lastClock.value_or(*clock); // in 32 bits, so that a wrap is none
    const double host = duration<double>(times.firstPayload - m_start).count();
    const double advanceOfHost = m_lastClock ? host - m_lastClockSeconds : 0.0;
    constexpr double busyMachine = 1.0;
    if (isOther || std::abs(seconds(advance).count() - advanceOfHost) > busyMachine) {
        m_clocks = DelayedClock(); // set anew, or wrapped unseen
        m_clock = 0;
    } else {
        m_clock += advance;
        if (times.sent && isNext && m_isClockOfLastFrame) {
            m_sentIntervals.add(ofClock(advance));
        }
    }
    m_isClockOfLastFrame = true;
    m_clockIsSent = times.sent.has_value();
    m_lastClock = clock;
    m_lastClockSeconds = host;
    m_clocks.add(host, seconds(m_clock).count());
}

Durations FrameTiming::jitter() const
{
    return m_intervals.distancesFrom(duration_cast<nanoseconds>(duration<double>(period())));
}

Durations FrameTiming::cameraJitter() const
{
    constexpr double median = 50;
    return m_sentIntervals.distancesFrom(m_sentIntervals.percentile(median));
}

std::optional<FrameTiming::Drift> FrameTiming::drift() const
{
    constexpr double million = 1e6;
    const Line line = m_clocks.line();
    if (line.count() < DelayedClock::fewestWindows) {
        return std::nullopt;
    }
    return Drift{(line.slope() - 1.0) * million, line.slopeError() * million};
}

} // namespace zrnhost
