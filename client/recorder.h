#pragma once

#include "client/recording_file.h"
#include "client/recording_note.h"

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <thread>

namespace zrn
{

/// How a recording is going.
struct RecordingProgress {
    std::uint64_t frames = 0;      ///< written
    std::uint64_t missing = 0;     ///< frame numbers that the camera or the driver skipped
    std::uint64_t unwritten = 0;   ///< taken, but not written when it ended early
    std::uint64_t bytes = 0;       ///< written
    double bytesPerSecond = 0;     ///< written, since the start
    double seconds = 0;            ///< since the start
    std::uint64_t queuedBytes = 0; ///< waiting to be written
    std::int64_t freeBytes = 0;    ///< left on the disk
    bool finished = false;         ///< nothing more will be written
    std::string error;             ///< why it ended early; empty if it did not
};

/// Records frames without dropping any: a thread writes them while the next ones arrive, and what
/// waits as soon as nothing else does. Once a second it notes what the clocks show. When the disk
/// falls behind, frames queue in memory; when that is full, add() waits, and the driver's own ring
/// is what remains. What is lost even then shows as missing frame numbers.
///
/// Thread safety: thread-safe.
class Recorder
{
public:
    struct Limits {
        std::uint64_t queueBytes = std::uint64_t{256} << 20; ///< memory for frames that wait
        std::int64_t reservedBytes = std::int64_t{64} << 20; ///< what is to remain free on the disk
    };

    /// Creates the file and starts. @param metadata an object as JSON text @throws Error
    Recorder(const std::string& path, std::string_view metadata, Limits limits);
    Recorder(const std::string& path, std::string_view metadata)
        : Recorder(path, metadata, Limits())
    {
    }
    /// Finishes.
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    /// Hands over a frame; waits while the queue is full. @return false when it was not taken: the
    /// recording has ended, or the frame is not recordable.
    bool add(Frame frame);

    /// Keeps a note in the recording, with the next frame or at its end; none that is longer than
    /// 64 KiB, or comes when the recording has 64 MiB of them. Never waits.
    void note(RecordingNote note);

    /// Takes no more frames; those that wait are still written. Does not wait for that.
    void stop();
    /// Stops and waits until the file is complete.
    void finish();

    [[nodiscard]] const std::string& path() const { return m_path; }
    [[nodiscard]] RecordingProgress progress() const;

private:
    using Clock = std::chrono::steady_clock;

    void run();
    void removeFile() const;
    std::string writeFrames();
    std::optional<Frame> next();
    [[nodiscard]] bool isIdle() const;
    [[nodiscard]] std::string whyNotToWrite(std::uint64_t size);
    void readClocks();
    void tellProgress(const Frame& frame);
    void end(const std::string& error);

    const std::string m_path;
    const Limits m_limits;
    const Clock::time_point m_start = Clock::now();
    RecordingFile m_file; // used by m_thread only, like what follows
    std::optional<Clock::time_point> m_clocksRead;
    std::optional<Clock::time_point> m_diskAsked;
    std::int64_t m_freeBytes = 0;  // that the disk told then
    std::uint64_t m_bytesThen = 0; // of the file

    mutable std::mutex m_mutex; // guards everything below
    std::condition_variable m_changed;
    std::deque<Frame> m_queue;
    std::vector<RecordingNote> m_notes; // for the file
    std::size_t m_noteBytes = 0;        // of all that there were
    std::uint64_t m_taken = 0;          // frames
    bool m_isStopping = false;
    Clock::time_point m_end;
    RecordingProgress m_progress;

    std::mutex m_joining;
    std::thread m_thread;
};

} // namespace zrn
