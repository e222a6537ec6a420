#include "client/recording_notes.h"

#include "client/little_endian.h"

#include <algorithm>
#include <array>

namespace zrn::recording
{
namespace
{

using little_endian::get;
using little_endian::put;

enum class RecordKind : std::uint8_t {
    Note,     ///< the body is its text
    Realtime, ///< the body is a reading of the clock
    Tai,
};

// Of a record.
constexpr std::size_t timeAt = 0;
constexpr std::size_t lengthAt = 8;
constexpr std::size_t kindAt = 12;
constexpr std::size_t recordHeadBytes = 16;
// Of the body of a reading.
constexpr std::size_t otherAt = 0;
constexpr std::size_t errorAt = 8;
constexpr std::size_t readingBytes = 16;

/// Of dates and errors: nanoseconds of 146 years, so that distances between clocks can be told.
constexpr std::int64_t maximumDate = std::int64_t{1} << 62;

} // namespace

bool NoteWriter::add(const RecordingNote& note)
{
    const auto* const text = reinterpret_cast<const std::uint8_t*>(note.text.data());
    return add(static_cast<std::uint8_t>(RecordKind::Note), note.time, {text, note.text.size()});
}

bool NoteWriter::add(WallClock::Kind kind, const WallClock::Reading& reading)
{
    std::array<std::uint8_t, readingBytes> body{};
    put(body, otherAt, std::int64_t{reading.other.count()});
    put(body, errorAt, std::int64_t{reading.error.count()});
    return add(static_cast<std::uint8_t>(kind == WallClock::Kind::Tai ? RecordKind::Tai
                                                                      : RecordKind::Realtime),
               reading.monotonic, body);
}

bool NoteWriter::add(std::uint8_t kind, FrameTimes::time_point time,
                     std::span<const std::uint8_t> body)
{
    const std::size_t begin = m_bytes.size();
    if (body.size() > maximumNoteBytes ||
        begin + recordHeadBytes + body.size() > maximumNotesBytes) {
        return false;
    }
    m_bytes.resize(begin + recordHeadBytes);
    const auto head = std::span(m_bytes).subspan(begin);
    put(head, timeAt,
        std::clamp<std::int64_t>(std::chrono::nanoseconds(time.time_since_epoch()).count(),
                                 -maximumMonotonic, maximumMonotonic));
    put(head, lengthAt, static_cast<std::uint32_t>(body.size()));
    head[kindAt] = kind;
    m_bytes.insert(m_bytes.end(), body.begin(), body.end());
    m_waiting.push_back(begin);
    return true;
}

NoteChunk NoteWriter::nextChunk()
{
    const std::size_t begin = m_carried;
    m_carried += std::min(m_bytes.size() - begin, noteChunkBytes);
    const std::size_t bytes = m_carried - begin;
    const NoteChunk chunk{std::span(m_bytes).subspan(begin, bytes),
                          m_waiting.empty() ? bytes : std::min(m_waiting.front() - begin, bytes)};
    while (!m_waiting.empty() && m_waiting.front() < m_carried) {
        m_waiting.pop_front();
    }
    return chunk;
}

void NoteReader::read(const NoteChunk& chunk, bool follows)
{
    std::size_t skipped = 0;
    if (!follows || m_isLost) {
        skipped = std::min(chunk.firstRecord, chunk.bytes.size());
        m_isLost = skipped == chunk.bytes.size();
        m_bytes.clear();
    }
    const auto added = chunk.bytes.subspan(skipped);
    m_bytes.insert(m_bytes.end(), added.begin(), added.end());

    std::span<const std::uint8_t> left = m_bytes;
    while (left.size() >= recordHeadBytes) {
        const auto head = left.first(recordHeadBytes);
        const auto length = get<std::uint32_t>(head, lengthAt);
        if (left.size() - recordHeadBytes < length && length <= maximumNoteBytes) {
            break;
        }
        if (length > maximumNoteBytes || !keep(head, left.subspan(recordHeadBytes, length))) {
            m_isLost = true;
            m_bytes.clear();
            return;
        }
        left = left.subspan(recordHeadBytes + length);
    }
    m_bytes.erase(m_bytes.begin(), m_bytes.end() - static_cast<std::ptrdiff_t>(left.size()));
}

bool NoteReader::keep(std::span<const std::uint8_t> head, std::span<const std::uint8_t> body)
{
    const auto nanoseconds = get<std::int64_t>(head, timeAt);
    if (nanoseconds < -maximumMonotonic || nanoseconds > maximumMonotonic) {
        return false;
    }
    const FrameTimes::time_point time{std::chrono::nanoseconds(nanoseconds)};
    const auto kind = static_cast<RecordKind>(head[kindAt]);
    if (kind == RecordKind::Note) {
        m_notes.push_back({time, std::string(body.begin(), body.end())});
        return true;
    }
    if ((kind != RecordKind::Realtime && kind != RecordKind::Tai) || body.size() != readingBytes) {
        return false;
    }
    const auto other = get<std::int64_t>(body, otherAt);
    const auto error = get<std::int64_t>(body, errorAt);
    if (other < 0 || other > maximumDate || error < 0 || error > maximumMonotonic) {
        return false;
    }
    (kind == RecordKind::Tai ? m_tai : m_realtime)
        .push_back({time, std::chrono::nanoseconds(other), std::chrono::nanoseconds(error)});
    return true;
}

std::vector<WallClock::Reading> NoteReader::readings(WallClock::Kind kind) const
{
    std::vector<WallClock::Reading> readings = kind == WallClock::Kind::Tai ? m_tai : m_realtime;
    std::ranges::stable_sort(readings, {}, &WallClock::Reading::monotonic);
    return readings;
}

} // namespace zrn::recording
