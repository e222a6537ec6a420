#pragma once

#include "client/recording_note.h"
#include "client/recording_session.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace zrn
{

/// How the recordings of a camera are going.
struct CameraRecorderProgress {
    std::uint64_t frames = 0;      ///< written, in all sets
    std::uint64_t missing = 0;     ///< frame numbers between those that were taken, likewise
    std::uint64_t queueLosses = 0; ///< of these, frames that the disk was too slow for
    std::uint64_t bytes = 0;       ///< of the files
    std::uint64_t queuedBytes = 0; ///< waiting to be written
    std::int64_t freeBytes = 0;    ///< left on the disk
    std::size_t sets = 0;          ///< that this camera has begun
    std::size_t doneSets = 0;      ///< of these, complete ones
    bool isWaiting = false;        ///< for a trigger
    bool isShortened = false;      ///< the memory does not hold all that is wanted before a trigger
    bool isDone = false;           ///< nothing more will be written
};

/// What a recording of a camera begins with: who it is, and how it is set as far as that is known.
/// @return an object as JSON text
std::string metadataOf(const Camera& camera);

/// Records what a session's plan wants of one camera: every frame, or those around triggers, in one
/// file of each set or in several that follow each other without a gap.
///
/// Nothing that gives it frames ever waits: a thread takes them to the files. When the disk falls
/// behind, frames wait in memory; when that is full, new ones are dropped, and counted. Before a
/// trigger the oldest make room.
///
/// Thread safety: thread-safe; the destructor belongs to one thread.
class CameraRecorder
{
public:
    /// @param metadata called on this object's thread when a file begins: an object as JSON text
    CameraRecorder(std::shared_ptr<RecordingSession> session, std::string serial,
                   std::function<std::string()> metadata);
    /// Finishes.
    ~CameraRecorder();
    CameraRecorder(const CameraRecorder&) = delete;
    CameraRecorder& operator=(const CameraRecorder&) = delete;

    /// Takes a frame, in the order of the stream. @param lost what the stream has lost until then
    void add(Frame frame, const StreamLosses& lost);
    /// Keeps a note, with its time.
    void note(RecordingNote note);
    /// Keeps a note of what happened to the stream, just now.
    void note(const StreamEvent& event);
    /// Keeps notes of its settings: every file begins with those in force, as far as they are
    /// known, and has each change. May be called once.
    void watch(Camera& camera);

    /// Takes nothing more; what waits is still written. Does not wait for that.
    /// @param failure why the set that goes on is not what was wanted; empty when it is
    void stop(const std::string& failure = {});
    /// Waits until nothing more will be written, because the plan is fulfilled, it failed or it was
    /// stopped. @return whether that is so
    bool waitUntilDone(std::chrono::milliseconds longest);
    /// Stops and waits until all files are complete.
    void finish();

    [[nodiscard]] const std::shared_ptr<RecordingSession>& session() const { return m_session; }
    [[nodiscard]] CameraRecorderProgress progress() const;
    /// What it gave to the sets, as far as it has done with them.
    [[nodiscard]] std::vector<RecordedPart> parts() const;

private:
    using Clock = RecordingSession::Clock;

    /// Where a frame stands in the stream.
    struct Mark {
        std::uint32_t number = 0;
        Clock::time_point arrival;
        std::uint64_t missing = 0; ///< until this frame, since the first
        StreamLosses lost;         ///< likewise
    };
    struct Item {
        std::optional<Frame> frame;
        RecordingNote note;  ///< without a frame
        std::string setting; ///< key of the one that it tells of
        Mark mark;
        std::uint64_t bytes = 0;
    };
    /// A file that is being written, and the frames that are not known to be in it yet.
    struct File {
        std::shared_ptr<Recorder> recorder;
        std::uint64_t imageBytes = 0;
        Mark first;
        std::deque<Mark> marks; ///< the last written one, and those after it
        std::uint64_t forgotten = 0;
    };

    void keep(RecordingNote note, std::string setting);
    void rememberSetting(const Item& item);
    void run();
    void takeUp(std::unique_lock<std::mutex>& lock);
    void makeRoom(Clock::time_point newest, std::uint64_t size);
    void dropOldest();
    void write(Item item);
    void keepEarly(RecordingNote note);
    void writeFrame(Frame frame, const Mark& mark);
    void open(const Frame& frame, const Mark& mark);
    void closeFile();
    void forget(File& file) const;
    void lookForRemoval();
    void noteTriggers(std::size_t set, Clock::time_point before);
    void endSet();
    void fail(const std::string& why);

    const std::shared_ptr<RecordingSession> m_session;
    const std::string m_serial;
    const std::function<std::string()> m_metadata;
    const Clock::time_point m_start = Clock::now();

    // Used by the thread only.
    RecordingSession::Count m_count;
    std::string m_base;                      // of the set's files
    std::vector<RecordingNote> m_earlyNotes; // of the set, before its first frame
    std::deque<File> m_files;                // the last one grows, the others are being closed
    unsigned m_fileCount = 0;                // of the set
    std::size_t m_notedTriggers = 0;
    std::optional<Mark> m_firstWritten; // of the set
    Mark m_lastWritten;                 // likewise
    Mark m_lastTaken;                   // by a file; what is not written yet may yet fail
    RecordedPart m_part;
    Clock::time_point m_nextLook;

    mutable std::mutex m_mutex; // guards what follows; taken before the session's
    std::condition_variable m_changed;
    std::deque<Item> m_items;
    /// The last note of each setting before these, in the order in which they were set.
    std::vector<std::pair<std::string, RecordingNote>> m_settings;
    std::uint64_t m_bytes = 0;
    std::uint64_t m_earlyNoteBytes = 0;
    FrameStep m_carried;              // what a dropped frame tells of those before it
    std::uint32_t m_carriedDrops = 0; // frames that were dropped since the one before
    std::uint64_t m_streamDrops = 0;  // from the stream's own queue, until now
    std::uint64_t m_missing = 0;
    std::uint64_t m_dropped = 0;
    std::uint64_t m_unusable = 0;
    std::size_t m_set = 0; // the one that is recorded, or comes next
    bool m_isRecording = false;
    bool m_isStopping = false;
    std::string m_stopFailure;
    bool m_isShortened = false;
    bool m_isDone = false;
    std::uint64_t m_doneFrames = 0;
    std::uint64_t m_doneBytes = 0;
    std::uint64_t m_partMissing = 0; // of the set that is recorded
    std::uint64_t m_doneMissing = 0;
    std::vector<std::shared_ptr<Recorder>> m_recorders; // of m_files
    std::vector<RecordedPart> m_parts;

    std::mutex m_joining;
    std::thread m_thread;

    std::shared_ptr<void> m_settingsWatch; // the first to go: it calls this object
};

} // namespace zrn
