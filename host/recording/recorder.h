#pragma once

#include "recording/recording_file.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

namespace zrnrecording
{

/// How a recording is going.
struct RecordingProgress {
    quint64 frames = 0;        ///< written
    quint64 missing = 0;       ///< frame numbers that the camera or the driver skipped
    quint64 bytes = 0;         ///< written
    double bytesPerSecond = 0; ///< written, since the start
    double seconds = 0;        ///< since the start
    quint64 queuedBytes = 0;   ///< waiting to be written
    quint64 queueLimit = 0;    ///< bytes that may wait before the camera's thread has to
    qint64 freeBytes = 0;      ///< left on the disk
    bool finished = false;     ///< nothing more will be written
    QString error;             ///< why it ended early; empty if it did not
};

/// Records frames without dropping any: a thread writes them while the next ones arrive. When the
/// disk falls behind, frames queue in memory; when that is full, add() waits, and the driver's own
/// cache of frames is what remains. What is lost even then shows as missing frame numbers.
///
/// Thread safety: thread-safe.
class Recorder
{
public:
    struct Limits {
        quint64 queueBytes = quint64{256} << 20; ///< memory for frames that wait
        qint64 reservedBytes = qint64{64} << 20; ///< what is to remain free on the disk
    };

    /// Creates the file and starts. @throws RecordingError
    Recorder(const QString& path, const QJsonObject& metadata, Limits limits);
    Recorder(const QString& path, const QJsonObject& metadata)
        : Recorder(path, metadata, Limits())
    {
    }
    /// Finishes.
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    /// Hands over a frame; waits while the queue is full. @return false when it was not taken: the
    /// recording has ended, or the frame is not recordable.
    bool add(std::shared_ptr<const Frame> frame);

    /// Takes no more frames; those that wait are still written. Does not wait for that.
    void stop();
    /// Stops and waits until the file is complete.
    void finish();

    QString path() const { return m_path; }
    RecordingProgress progress() const;

private:
    using Clock = std::chrono::steady_clock;

    void run();
    std::shared_ptr<const Frame> next();
    void written(const Frame& frame);
    void end(const QString& error);
    static quint64 sizeOf(const Frame& frame);

    const QString m_path;
    const Limits m_limits;
    const Clock::time_point m_start = Clock::now();
    RecordingFile m_file; // used by m_thread only

    mutable std::mutex m_mutex; // guards everything below
    std::condition_variable m_changed;
    std::deque<std::shared_ptr<const Frame>> m_queue;
    bool m_stopping = false;
    Clock::time_point m_end;
    RecordingProgress m_progress;

    std::mutex m_joining;
    std::thread m_thread;
};

} // namespace zrnrecording
