#pragma once

#include "client/recorder.h"
#include "client/stream.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace zrn
{

/// What is recorded of the streams of one or several cameras, and where.
struct RecordingPlan {
    std::string folder = ".";       ///< made if missing
    std::string name = "recording"; ///< of the sets: NAME_0001, NAME_0002, ...
    /// Without: one set, from the beginning on. With it a set begins at each trigger, with the
    /// frames of so long `before`, which are kept in memory.
    bool waitsForTrigger = false;
    std::chrono::nanoseconds before{};
    /// A set ends with the first of these, for each camera; counted from the beginning, or from the
    /// last trigger. Neither: with the session.
    std::optional<std::chrono::nanoseconds> duration;
    std::optional<std::uint64_t> frames;
    std::uint64_t mostSets = 0; ///< after which triggers are of no use; 0: any number
    /// A camera's next file begins before the images of one exceed this, or it is as long as this;
    /// 0: one file.
    std::uint64_t segmentBytes = 0;
    std::chrono::nanoseconds segmentDuration{};
    /// Of each camera, for frames that wait for a trigger or for the disk.
    std::uint64_t memoryBytes = std::uint64_t{256} << 20;
    /// Of each file, behind that memory.
    Recorder::Limits file{std::uint64_t{64} << 20, Recorder::Limits().reservedBytes};
};

/// A file of a set.
struct RecordedFile {
    std::string path;
    std::uint64_t frames = 0;  ///< written
    std::uint64_t missing = 0; ///< frame numbers between them that are not there
    std::uint64_t bytes = 0;
    std::uint32_t firstNumber = 0; ///< of its frames
    std::uint32_t lastNumber = 0;
    double seconds = 0; ///< from the first frame to the last
};

/// What one camera gave to a set.
struct RecordedPart {
    std::vector<RecordedFile> files; ///< that hold frames
    std::uint64_t frames = 0;        ///< written
    std::uint64_t missing = 0;       ///< frame numbers between the first and the last of them
    StreamLosses lost;               ///< these by the place; queue: the disk was too slow for them
    std::uint64_t unwritten = 0;     ///< frames that were there, and lost to the failure
    double seconds = 0;              ///< from the first frame to the last
    double secondsBefore = 0;        ///< from the first frame to the trigger
    std::string failure;             ///< why it ended before its time; empty if it did not

    /// Of its files.
    [[nodiscard]] std::uint64_t bytes() const;
};

/// What all parts of a camera have together: their files one behind the other, and the first
/// failure.
RecordedPart sumOf(const std::vector<RecordedPart>& parts);

/// A number as the names of files have it, with zeros before it.
std::string digitsOf(unsigned number, std::size_t fewest);

/// The part as an object of JSON text. @param withFolders in the paths of the files
std::string toJson(const RecordedPart& part, bool withFolders);

/// Sets of recordings that cameras make together: one file or several of each camera, and a small
/// JSON file, NAME_0001.json, that names them. A set's number is the one after the highest in the
/// folder; no file is ever replaced.
///
/// Thread safety: thread-safe.
class RecordingSession
{
public:
    using Clock = std::chrono::steady_clock;

    /// Makes the folder. @throws Error when nothing can be written there
    explicit RecordingSession(RecordingPlan plan);

    [[nodiscard]] const RecordingPlan& plan() const { return m_plan; }

    /// Begins a set; where one goes on, makes it go on from now for as long as a new one would.
    /// Without effect when there are as many sets as are wanted.
    void trigger();

    /// The JSON file of a set; empty before a camera has begun it. @param set from 0
    [[nodiscard]] std::string fileOf(std::size_t set) const;
    /// Why a set's JSON file could not be written; empty if none failed.
    [[nodiscard]] std::string failure() const;

private:
    friend class CameraRecorder;

    /// How far a camera is with a set.
    struct Count {
        std::optional<Clock::time_point> since; ///< the last trigger
        std::uint64_t frames = 0;               ///< recorded since then
    };
    struct Set {
        std::vector<Clock::time_point> triggers;
        std::vector<std::chrono::system_clock::time_point> times; ///< of these
        bool hasEnded = false; ///< for one of the cameras, by duration or frames
    };
    /// A set's files.
    struct Files {
        std::string base; ///< their path, without what makes them differ
        std::map<std::string, std::optional<RecordedPart>> parts; ///< by serial; ended ones
        bool isComplete = false;
    };

    void join(const std::string& serial);
    void leave(const std::string& serial);
    /// Which frames a camera has to keep for a set: those from this time on. Nothing as long as the
    /// set has not begun.
    [[nodiscard]] std::optional<Clock::time_point> beginOf(std::size_t set) const;
    [[nodiscard]] std::vector<Clock::time_point> triggersOf(std::size_t set) const;
    [[nodiscard]] bool isLast(std::size_t set) const;
    /// Whether a camera is done with a set before a frame of this time. @param start of the camera
    bool isOver(std::size_t set, Count& count, Clock::time_point start, Clock::time_point time);
    /// A camera's part begins. @return path of its files, without number and suffix @throws Error
    std::string begin(std::size_t set, const std::string& serial);
    void end(std::size_t set, const std::string& serial, RecordedPart part);

    std::string claim() const;
    void write(std::size_t set);

    const RecordingPlan m_plan;
    const std::chrono::system_clock::time_point m_start = std::chrono::system_clock::now();

    mutable std::mutex m_mutex; // guards m_sets; taken after a recorder's own; no file is touched
    std::deque<Set> m_sets;

    mutable std::mutex m_filesMutex; // guards what follows, and the files
    std::set<std::string> m_serials; // of cameras that may take part
    std::map<std::size_t, Files> m_files;
    std::string m_failure;
};

} // namespace zrn
