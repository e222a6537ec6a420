#include "recording/recorder.h"

#include <QFileInfo>

#include <sys/statvfs.h>

namespace zrnrecording
{
namespace
{

qint64 freeBytesAt(const QString& path)
{
    struct statvfs disk {
    };
    const QByteArray folder = QFile::encodeName(QFileInfo(path).absolutePath());
    if (::statvfs(folder.constData(), &disk) != 0) {
        return 0;
    }
    return static_cast<qint64>(disk.f_bavail * disk.f_frsize);
}

} // namespace

Recorder::Recorder(const QString& path, const QJsonObject& metadata, Limits limits)
    : m_path(path)
    , m_limits(limits)
    , m_file(path, metadata)
{
    m_progress.queueLimit = m_limits.queueBytes;
    m_progress.freeBytes = freeBytesAt(m_path);
    m_progress.bytes = m_file.bytes();
    m_thread = std::thread([this] { run(); });
}

Recorder::~Recorder()
{
    finish();
}

bool Recorder::add(std::shared_ptr<const Frame> frame)
{
    if (!isRecordable(*frame)) {
        return false;
    }
    const quint64 size = sizeOf(*frame);
    std::unique_lock lock(m_mutex);
    // A frame larger than the whole queue must still get through.
    m_changed.wait(lock, [this, size] {
        return m_stopping || m_queue.empty() ||
               m_progress.queuedBytes + size <= m_limits.queueBytes;
    });
    if (m_stopping) {
        return false;
    }
    m_progress.queuedBytes += size;
    m_queue.push_back(std::move(frame));
    m_changed.notify_all();
    return true;
}

void Recorder::stop()
{
    const std::lock_guard lock(m_mutex);
    m_stopping = true;
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
    try {
        while (const std::shared_ptr<const Frame> frame = next()) {
            const qint64 available = freeBytesAt(m_path);
            if (available - static_cast<qint64>(sizeOf(*frame)) < m_limits.reservedBytes) {
                m_file.close();
                end(QStringLiteral("the disk is full"));
                return;
            }
            m_file.append(*frame);
            written(*frame);
        }
        m_file.close();
        end(QString());
    } catch (const RecordingError& error) {
        end(QString::fromUtf8(error.what()));
    }
}

std::shared_ptr<const Frame> Recorder::next()
{
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_stopping || !m_queue.empty(); });
    return m_queue.empty() ? nullptr : m_queue.front();
}

void Recorder::written(const Frame& frame)
{
    const qint64 freeBytes = freeBytesAt(m_path);
    const std::lock_guard lock(m_mutex);
    m_queue.pop_front();
    m_progress.queuedBytes -= sizeOf(frame);
    m_progress.frames = m_file.frameCount();
    // Numbers that were skipped before the first frame are not the recording's loss.
    m_progress.missing += m_progress.frames > 1 ? frame.missing : 0;
    m_progress.bytes = m_file.bytes();
    m_progress.freeBytes = freeBytes;
    m_changed.notify_all();
}

void Recorder::end(const QString& error)
{
    const std::lock_guard lock(m_mutex);
    m_stopping = true;
    m_end = Clock::now();
    m_queue.clear();
    m_progress.queuedBytes = 0;
    m_progress.bytes = m_file.bytes();
    m_progress.finished = true;
    m_progress.error = error;
    m_changed.notify_all();
}

quint64 Recorder::sizeOf(const Frame& frame)
{
    quint64 size = 0;
    for (const Image& image : frame.images) {
        size += static_cast<quint64>(image.data.size());
    }
    return size;
}

} // namespace zrnrecording
