#include "client/recorder.h"

#include "client/error.h"
#include "client/recording_notes.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <system_error>

namespace zrn
{
namespace
{

constexpr auto clockInterval = std::chrono::seconds(1);
constexpr auto diskInterval = std::chrono::milliseconds(250);

constexpr const char* removed = "the file was removed meanwhile";

} // namespace

Recorder::Recorder(const std::string& path, std::string_view metadata, Limits limits)
    : m_path(path)
    , m_limits(limits)
    , m_file(path, metadata)
{
    m_progress.freeBytes = m_file.freeBytes();
    m_progress.bytes = m_file.bytes();
    try {
        m_thread = std::thread([this] { run(); });
    } catch (const std::system_error& error) {
        removeFile();
        throw Error(Error::Kind::Recording, "NotWritable",
                    m_path + ": no thread can be started to write it: " + error.code().message(),
                    "end other programs, then try again");
    }
}

Recorder::~Recorder()
{
    finish();
}

bool Recorder::add(Frame frame)
{
    if (!isRecordable(frame)) {
        return false;
    }
    const std::uint64_t size = frame.bytes();
    std::unique_lock lock(m_mutex);
    // A frame larger than the whole queue must still get through.
    m_changed.wait(lock, [this, size] {
        return m_isStopping || m_queue.empty() ||
               m_progress.queuedBytes + size <= m_limits.queueBytes;
    });
    if (m_isStopping) {
        return false;
    }
    m_progress.queuedBytes += size;
    ++m_taken;
    m_queue.push_back(std::move(frame));
    m_changed.notify_all();
    return true;
}

void Recorder::note(RecordingNote note)
{
    using namespace recording;
    const std::lock_guard lock(m_mutex);
    if (!m_isStopping && note.text.size() <= maximumNoteBytes &&
        m_noteBytes + note.text.size() <= maximumNotesBytes) {
        m_noteBytes += note.text.size();
        m_notes.push_back(std::move(note));
    }
}

void Recorder::stop()
{
    const std::lock_guard lock(m_mutex);
    m_isStopping = true;
    m_changed.notify_all();
}

void Recorder::finish()
{
    stop();
    const std::lock_guard lock(m_joining);
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

RecordingProgress Recorder::progress() const
{
    const std::lock_guard lock(m_mutex);
    RecordingProgress progress = m_progress;
    const Clock::time_point now = progress.finished ? m_end : Clock::now();
    progress.seconds = std::chrono::duration<double>(now - m_start).count();
    progress.bytesPerSecond =
        progress.seconds > 0 ? static_cast<double>(progress.bytes) / progress.seconds : 0;
    return progress;
}

void Recorder::run()
{
    std::string error;
    try {
        error = writeFrames();
    } catch (const std::exception& exception) {
        error = exception.what();
    }
    if (!error.empty() && error != removed && m_file.writtenFrames() == 0 && !m_file.isRemoved()) {
        removeFile(); // it has never begun
    }
    end(error);
}

void Recorder::removeFile() const
{
    std::error_code ignored;
    std::filesystem::remove(m_path, ignored);
}

/// @return why it ended before it was stopped; empty if it did not @throws Error
std::string Recorder::writeFrames()
{
    while (const std::optional<Frame> frame = next()) {
        const std::string problem = whyNotToWrite(frame->bytes());
        if (!problem.empty()) {
            m_file.close();
            return problem;
        }
        readClocks();
        m_file.append(*frame);
        if (isIdle()) {
            m_file.flush();
        }
        tellProgress(*frame);
    }
    m_clocksRead.reset();
    readClocks();
    const bool isLost = m_file.isRemoved();
    m_file.close();
    return isLost ? removed : std::string();
}

/// The next frame to write; the notes that came with it go to the file.
std::optional<Frame> Recorder::next()
{
    std::optional<Frame> frame;
    std::vector<RecordingNote> notes;
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_isStopping || !m_queue.empty(); });
        notes.swap(m_notes);
        if (!m_queue.empty()) {
            frame = std::move(m_queue.front());
            m_queue.pop_front();
            m_progress.queuedBytes -= frame->bytes();
            m_changed.notify_all();
        }
    }
    for (const RecordingNote& note : notes) {
        m_file.note(note);
    }
    return frame;
}

bool Recorder::isIdle() const
{
    const std::lock_guard lock(m_mutex);
    return m_queue.empty();
}

/// Empty when it may be. @param size of a frame
std::string Recorder::whyNotToWrite(std::uint64_t size)
{
    const auto freeThen = [this, size] {
        return m_freeBytes - static_cast<std::int64_t>(m_file.bytes() - m_bytesThen + size);
    };
    const Clock::time_point now = Clock::now();
    if (!m_diskAsked || now - *m_diskAsked >= diskInterval || freeThen() < m_limits.reservedBytes) {
        if (m_file.isRemoved()) {
            return removed;
        }
        m_diskAsked = now;
        m_bytesThen = m_file.writtenBytes();
        m_freeBytes = m_file.freeBytes();
    }
    return freeThen() < m_limits.reservedBytes ? "the disk is full" : std::string();
}

/// Notes what they show, if the last time is long enough ago.
void Recorder::readClocks()
{
    const Clock::time_point now = Clock::now();
    // More and more rarely after an hour: a recording of months has room for them.
    const auto interval = std::max<Clock::duration>(clockInterval, (now - m_start) / 3600);
    if (m_clocksRead && now - *m_clocksRead < interval) {
        return;
    }
    m_clocksRead = now;
    for (const WallClock::Kind kind : {WallClock::Kind::Realtime, WallClock::Kind::Tai}) {
        m_file.note(kind, WallClock::read(kind));
    }
}

/// @param frame that was appended
void Recorder::tellProgress(const Frame& frame)
{
    const std::uint64_t frames = m_file.writtenFrames();
    const std::lock_guard lock(m_mutex);
    m_progress.frames = frames;
    // Numbers that were skipped before the first frame are not the recording's loss.
    m_progress.missing += m_file.frameCount() > 1 ? frame.step.missing : 0;
    m_progress.bytes = m_file.writtenBytes();
    m_progress.freeBytes = m_freeBytes;
}

void Recorder::end(const std::string& error)
{
    const std::uint64_t frames = m_file.writtenFrames();
    const std::lock_guard lock(m_mutex);
    m_isStopping = true;
    m_end = Clock::now();
    m_queue.clear();
    m_progress.queuedBytes = 0;
    m_progress.frames = frames;
    m_progress.unwritten = m_taken - frames;
    m_progress.bytes = m_file.writtenBytes();
    m_progress.finished = true;
    m_progress.error = error;
    m_changed.notify_all();
}

} // namespace zrn
