#pragma once

#include "client/recording_format.h"
#include "client/recording_note.h"
#include "client/wall_clock.h"

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace zrn
{

/// A recording that is read, any frame in any order. Never reads beyond the file, whatever its
/// bytes say; a file that is made shorter meanwhile ends the program. Frames whose place is known
/// only by those around them are counted, and damaged.
///
/// Thread safety: reentrant; const functions from any thread.
class Recording
{
public:
    /// Where the images of a file lie whose frames are all alike, for programs that read them
    /// without this library.
    struct Stack {
        std::uint32_t width = 0;
        std::uint32_t height = 0;
        int frames = 0;
        std::size_t imagesPerFrame = 0;
        std::array<char, Frame::mostImages> letters{};
        std::uint64_t offset = 0;     ///< of the first image of the first frame
        std::uint64_t imageBytes = 0; ///< from the first image of a frame to its second
        std::uint64_t frameBytes = 0; ///< from an image to the same one of the next frame
    };

    /// Opens and finds the frames. @throws Error when the file is no recording.
    explicit Recording(const std::string& path);

    /// Of its format: 1 or 2. The first knows no notes, no times but that of the arrival, and no
    /// date.
    [[nodiscard]] int version() const { return m_version; }
    /// What the writer noted: an object as JSON text; empty when it was damaged.
    [[nodiscard]] const std::string& metadata() const { return m_metadata; }
    [[nodiscard]] int frameCount() const { return static_cast<int>(m_offsets.size()); }
    [[nodiscard]] std::uint64_t bytes() const;

    /// Whether the writer closed the recording. If not, the frames up to the cut are there.
    [[nodiscard]] bool isComplete() const { return m_isComplete; }
    /// Bytes behind the last whole frame of a recording that is not complete.
    [[nodiscard]] std::uint64_t lostBytes() const { return m_lostBytes; }

    /// What is known about a frame without reading its images. @throws Error
    [[nodiscard]] recording::FrameHeader header(int position) const;
    /// A frame with its images, checked. Its times are those of CLOCK_MONOTONIC on the machine that
    /// recorded; in version 1 its arrival is the time since that of the first frame. @throws Error
    /// when it was damaged.
    [[nodiscard]] Frame frame(int position) const;
    /// The same without a copy and a check of its images: they lie in the file itself, which stays
    /// open for them. @throws Error when its header was damaged.
    [[nodiscard]] Frame view(int position) const;

    /// Reads every frame. @param onProgress called before each, with its position
    /// @return positions of those that were damaged, and what is wrong with them
    [[nodiscard]] std::map<int, std::string>
    damage(const std::function<void(int)>& onProgress = {}) const;
    /// What is wrong with the file beside its frames: its header, metadata, notes, index. What a
    /// cut has taken is no damage.
    [[nodiscard]] std::vector<std::string> otherDamage() const;

    /// From the first frame to the last readable one; 0 with less than two frames.
    [[nodiscard]] std::chrono::nanoseconds duration() const;
    /// From the arrival of the first readable frame to that of this one. @throws Error
    [[nodiscard]] std::chrono::nanoseconds sinceStart(int position) const;
    /// The date of a time of the recording; nothing where the recording does not tell.
    [[nodiscard]] std::optional<WallTime> wallTime(FrameTimes::time_point time,
                                                   WallClock::Kind kind) const;
    /// What happened meanwhile, in the order in which it was noted.
    [[nodiscard]] std::vector<RecordingNote> notes() const;
    /// Nothing when there is no frame, or they lie at distances that differ.
    [[nodiscard]] std::optional<Stack> stack() const;

private:
    class Mapping;
    class Log;

    [[nodiscard]] recording::Block blockAt(std::uint64_t offset) const;
    [[nodiscard]] std::span<const std::uint8_t> imagesOf(int position,
                                                         const recording::FrameHeader& found) const;
    [[nodiscard]] bool isWholeIn(const Frame& frame, const recording::FrameHeader& found) const;
    bool readHeader();
    bool readIndex();
    void findFrames();
    [[nodiscard]] std::optional<std::uint64_t> nextMark(std::uint64_t offset) const;
    /// The header at @p offset if the whole frame is in the file.
    [[nodiscard]] std::optional<recording::FrameHeader> frameAt(std::uint64_t offset) const;
    [[nodiscard]] std::optional<recording::FrameHeader> readableHeader(std::size_t position) const;
    [[nodiscard]] std::span<const std::uint8_t> closedNotes() const;
    [[nodiscard]] bool areClosedNotesWhole() const;
    [[nodiscard]] const Log& log() const;
    [[noreturn]] void refuse(const char* name, const std::string& why) const;

    const std::string m_path;
    std::shared_ptr<const Mapping> m_file;
    int m_version = 0;
    std::string m_metadata;
    std::uint64_t m_firstFrame = 0; // its place
    std::vector<std::uint64_t> m_offsets;
    std::int64_t m_firstArrival = 0;
    bool m_isComplete = false;
    std::uint64_t m_lostBytes = 0;
    recording::Tail m_tail;                 // of one that is complete
    std::vector<const char*> m_otherDamage; // that was found when it was opened

    mutable std::once_flag m_logRead;
    mutable std::shared_ptr<const Log> m_log; // what was noted
};

} // namespace zrn
