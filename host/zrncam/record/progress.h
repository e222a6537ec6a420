#pragma once

#include "client/camera_recorder.h"
#include "common/progress.h"

#include <QString>

#include <chrono>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

/// The progress of all cameras together, which each tells of from its own thread.
///
/// Thread safety: thread-safe.
class RecordProgress
{
public:
    explicit RecordProgress(bool isQuiet)
        : m_progress(isQuiet)
    {
    }

    /// @param name of a camera, where there are several
    void note(const QString& name, const QString& text);
    void show(const QString& name, const zrn::CameraRecorderProgress& state);

private:
    using Clock = std::chrono::steady_clock;

    double rateOf(std::uint64_t frames);

    const Clock::time_point m_start = Clock::now();
    std::mutex m_mutex; // guards what follows
    zrnhost::Progress m_progress;
    std::map<QString, zrn::CameraRecorderProgress> m_states;
    std::pair<Clock::time_point, std::uint64_t> m_older{m_start, 0};
    std::pair<Clock::time_point, std::uint64_t> m_newer{m_start, 0};
};

/// Tells what has changed at one camera since it was asked before.
///
/// Thread safety: note() from any thread, the rest from one.
class Teller
{
public:
    Teller(RecordProgress& progress, const zrn::RecordingPlan& plan, QString name);

    /// Waits for nothing: told by the next tell(), whose terminal may keep it waiting.
    void note(const zrn::StreamEvent& event);
    void tell(const zrn::CameraRecorderProgress& state);

private:
    void note(const QString& text) { m_progress.note(m_name, text); }
    void tellSets(const zrn::CameraRecorderProgress& state);

    RecordProgress& m_progress;
    const zrn::RecordingPlan& m_plan;
    const QString m_name;
    std::size_t m_toldBegun = 0; ///< sets
    std::size_t m_toldDone = 0;  ///< likewise
    bool m_toldWaiting = false;
    bool m_toldShortened = false;
    bool m_toldSlow = false;
    std::mutex m_eventsMutex;
    std::vector<QString> m_events; ///< not told yet
};
