#pragma once

#include "client/frame.h"
#include "client/recording_note.h"
#include "client/wall_clock.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace zrn
{

class BlockWriter;
namespace recording
{
class NoteWriter;
}

/// Whether the size of a frame and the bytes of its images agree, so that it can be recorded.
bool isRecordable(const Frame& frame);

/// Writes one recording, frame after frame.
///
/// Until close() the file lacks its index, which a reader then makes up for.
/// Thread safety: thread-bound.
class RecordingFile
{
public:
    /// Creates the file, which must not exist. @param metadata an object as JSON text
    /// @throws Error
    RecordingFile(const std::string& path, std::string_view metadata);
    ~RecordingFile();
    RecordingFile(const RecordingFile&) = delete;
    RecordingFile& operator=(const RecordingFile&) = delete;

    /// Appends a recordable frame, which is then gathered with others. After an error the frames
    /// before it that were written can still be read. @throws Error
    void append(const Frame& frame);
    /// Waits until the system has the frames that were appended. @throws Error
    void flush();

    /// Goes with the next frames, and with the index.
    /// @return false when the text is too long, or the recording has too many
    bool note(const RecordingNote& note);
    /// The same for a reading of a clock, by which times get their dates.
    bool note(WallClock::Kind kind, const WallClock::Reading& reading);

    /// Writes notes, index and tail, and waits until the file is on the disk. @throws Error
    void close();

    [[nodiscard]] const std::string& path() const { return m_path; }
    [[nodiscard]] std::uint64_t frameCount() const { return m_offsets.size(); } ///< appended
    [[nodiscard]] std::uint64_t bytes() const;                                  ///< appended
    /// Frames that the system has, whatever becomes of this process.
    [[nodiscard]] std::uint64_t writtenFrames() const;
    [[nodiscard]] std::uint64_t writtenBytes() const;

    /// Left on the disk that it is on, for who may not fill it up; very much where that cannot be
    /// told.
    [[nodiscard]] std::int64_t freeBytes() const;
    /// Whether it has no name any more, so that what is written is lost.
    [[nodiscard]] bool isRemoved() const;

private:
    void begin(std::string_view metadata);
    void pad();
    [[noreturn]] void refuse(const std::string& why) const;

    const std::string m_path;
    int m_file = -1;
    std::unique_ptr<BlockWriter> m_blocks;
    std::unique_ptr<recording::NoteWriter> m_notes;
    std::vector<std::uint64_t> m_offsets;
    std::uint64_t m_framesEnd = 0;             // of the last one
    mutable std::uint64_t m_writtenFrames = 0; // that are known
};

} // namespace zrn
