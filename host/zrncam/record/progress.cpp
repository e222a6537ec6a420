#include "record/progress.h"

#include "commands/outages.h"
#include "output.h"

void RecordProgress::note(const QString& name, const QString& text)
{
    const std::lock_guard lock(m_mutex);
    m_progress.note(name.isEmpty() ? text : QStringLiteral("%1: %2").arg(name, text));
}

void RecordProgress::show(const QString& name, const zrn::CameraRecorderProgress& state)
{
    const std::lock_guard lock(m_mutex);
    m_states[name] = state;
    zrn::CameraRecorderProgress sum;
    sum.freeBytes = state.freeBytes;
    bool isWaiting = true;
    for (const auto& [camera, one] : m_states) {
        sum.frames += one.frames;
        sum.missing += one.missing;
        sum.queuedBytes += one.queuedBytes;
        isWaiting = isWaiting && (one.isWaiting || one.isDone);
    }
    const double seconds = std::chrono::duration<double>(Clock::now() - m_start).count();
    m_progress.show(
        QStringLiteral("%1 s%2%3, %4 frames/s, %5 missing, %6 queued, %7 free")
            .arg(seconds, 0, 'f', 1)
            .arg(isWaiting ? QStringLiteral(", waiting for a trigger, ") : QStringLiteral(", "),
                 countOf(static_cast<qint64>(sum.frames), QStringLiteral("frame")))
            .arg(rateOf(sum.frames), 0, 'f', 1)
            .arg(sum.missing)
            .arg(sizeText(static_cast<double>(sum.queuedBytes)),
                 sizeText(static_cast<double>(sum.freeBytes))));
}

/// Frames written per second, in the last second or two.
double RecordProgress::rateOf(std::uint64_t frames)
{
    constexpr std::chrono::seconds window(1);
    const Clock::time_point now = Clock::now();
    if (now - m_newer.first >= window) {
        m_older = std::exchange(m_newer, {now, frames});
    }
    const double seconds = std::chrono::duration<double>(now - m_older.first).count();
    return seconds > 0
               ? (static_cast<double>(frames) - static_cast<double>(m_older.second)) / seconds
               : 0;
}

Teller::Teller(RecordProgress& progress, const zrn::RecordingPlan& plan, QString name)
    : m_progress(progress)
    , m_plan(plan)
    , m_name(std::move(name))
{
}

void Teller::note(const zrn::StreamEvent& event)
{
    const std::lock_guard lock(m_eventsMutex);
    m_events.push_back(textOf(event));
}

void Teller::tell(const zrn::CameraRecorderProgress& state)
{
    std::vector<QString> events;
    {
        const std::lock_guard lock(m_eventsMutex);
        events.swap(m_events);
    }
    for (const QString& text : events) {
        note(text);
    }
    if (state.isWaiting && !std::exchange(m_toldWaiting, true)) {
        note(QStringLiteral("waiting for a trigger"));
    }
    if (state.isShortened && !std::exchange(m_toldShortened, true)) {
        note(QStringLiteral("%1 of memory do not hold %2 s; --memory takes more")
                 .arg(sizeText(static_cast<double>(m_plan.memoryBytes)))
                 .arg(std::chrono::duration<double>(m_plan.before).count()));
    }
    if (state.queueLosses > 0 && !std::exchange(m_toldSlow, true)) {
        note(QStringLiteral("the disk is too slow: frames are lost"));
    }
    if (m_plan.waitsForTrigger) {
        tellSets(state);
    }
    m_progress.show(m_name, state);
}

void Teller::tellSets(const zrn::CameraRecorderProgress& state)
{
    while (m_toldDone < state.sets) {
        if (m_toldBegun == m_toldDone) {
            ++m_toldBegun;
            note(QStringLiteral("set %1 begins").arg(m_toldBegun));
        }
        if (m_toldDone == state.doneSets) {
            return;
        }
        ++m_toldDone;
        note(QStringLiteral("set %1 is complete").arg(m_toldDone));
    }
}
