#include "client/recorder.h"

#include "client/error.h"

#include <exception>
#include <filesystem>
#include <sys/statvfs.h>
#include <system_error>

namespace zrn
{
namespace
{

std::int64_t freeBytesAt(const std::string& path)
{
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::absolute(path, error).parent_path();
    struct statvfs disk {
    };
    if (error || ::statvfs(folder.c_str(), &disk) != 0) {
        return 0;
    }
    return static_cast<std::int64_t>(disk.f_bavail * disk.f_frsize);
}

std::uint64_t sizeOf(const Frame& frame)
{
    std::uint64_t size = 0;
    for (const Image& image : frame.images()) {
        size += image.bytes.size();
    }
    return size;
}

} // namespace

Recorder::Recorder(const std::string& path, std::string_view metadata, Limits limits)
    : m_path(path)
    , m_limits(limits)
    , m_file(path, metadata)
{
    m_progress.queueLimit = m_limits.queueBytes;
    m_progress.freeBytes = freeBytesAt(m_path);
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
    const std::uint64_t size = sizeOf(frame);
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
    m_queue.push_back(std::move(frame));
    m_changed.notify_all();
    return true;
}

void Recorder::note(RecordingNote) {}

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
    if (!error.empty() && m_file.frameCount() == 0) {
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
        const std::int64_t available = freeBytesAt(m_path);
        if (available - static_cast<std::int64_t>(sizeOf(*frame)) < m_limits.reservedBytes) {
            m_file.close();
            return "the disk is full";
        }
        m_file.append(*frame);
        written(*frame);
    }
    m_file.close();
    return {};
}

/// The frame to write, which stays in the queue until it is written.
std::optional<Frame> Recorder::next()
{
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_isStopping || !m_queue.empty(); });
    return m_queue.empty() ? std::nullopt : std::optional(m_queue.front());
}

void Recorder::written(const Frame& frame)
{
    const std::int64_t freeBytes = freeBytesAt(m_path);
    const std::lock_guard lock(m_mutex);
    m_queue.pop_front();
    m_progress.queuedBytes -= sizeOf(frame);
    m_progress.frames = m_file.frameCount();
    // Numbers that were skipped before the first frame are not the recording's loss.
    m_progress.missing += m_progress.frames > 1 ? frame.step.missing : 0;
    m_progress.bytes = m_file.bytes();
    m_progress.freeBytes = freeBytes;
    m_changed.notify_all();
}

void Recorder::end(const std::string& error)
{
    const std::lock_guard lock(m_mutex);
    m_isStopping = true;
    m_end = Clock::now();
    m_progress.unwritten = m_queue.size();
    m_queue.clear();
    m_progress.queuedBytes = 0;
    m_progress.bytes = m_file.bytes();
    m_progress.finished = true;
    m_progress.error = error;
    m_changed.notify_all();
}

} // namespace zrn
