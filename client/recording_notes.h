#pragma once

#include "client/recording_format.h"
#include "client/recording_note.h"
#include "client/wall_clock.h"

#include <deque>
#include <vector>

/// The notes of a recording are one stream of bytes: records, each of a time, a length and as many
/// bytes. The headers of the frames carry it in chunks, and a closed file has it whole.
namespace zrn::recording
{

inline constexpr std::size_t maximumNoteBytes = std::size_t{64} * 1024; ///< of one text
/// Of all notes of a recording with their times; what is more is not kept.
inline constexpr std::size_t maximumNotesBytes = std::size_t{64} * 1024 * 1024;

/// Makes the stream. Thread safety: thread-bound.
class NoteWriter
{
public:
    /// @return false when it is too long, or the recording has too many
    bool add(const RecordingNote& note);
    bool add(WallClock::Kind kind, const WallClock::Reading& reading);

    /// What the header of the next frame is to carry, valid until the next call of any function.
    NoteChunk nextChunk();
    [[nodiscard]] std::span<const std::uint8_t> whole() const { return m_bytes; }

private:
    bool add(std::uint8_t kind, FrameTimes::time_point time, std::span<const std::uint8_t> body);

    std::vector<std::uint8_t> m_bytes;
    std::size_t m_carried = 0;         // bytes that are in the headers of frames
    std::deque<std::size_t> m_waiting; // where the records begin of which nothing is carried yet
};

/// Reads the stream, whatever its bytes say. Thread safety: thread-bound.
class NoteReader
{
public:
    /// The next chunk of the stream. @param follows whether none is missing before it
    void read(const NoteChunk& chunk, bool follows);

    [[nodiscard]] const std::vector<RecordingNote>& notes() const { return m_notes; }
    /// In the order of their times.
    [[nodiscard]] std::vector<WallClock::Reading> readings(WallClock::Kind kind) const;

private:
    /// @return false when no writer makes such a record
    bool keep(std::span<const std::uint8_t> head, std::span<const std::uint8_t> body);

    std::vector<std::uint8_t> m_bytes; // of a record that is not complete
    bool m_isLost = false;             // until a chunk tells where a record begins
    std::vector<RecordingNote> m_notes;
    std::vector<WallClock::Reading> m_realtime;
    std::vector<WallClock::Reading> m_tai;
};

} // namespace zrn::recording
