#pragma once

#include "recording/recording_format.h"

#include <QFile>
#include <QJsonObject>

#include <stdexcept>

namespace zrnrecording
{

/// A recording cannot be written or read; what() says why, naming the file.
class RecordingError : public std::runtime_error
{
public:
    explicit RecordingError(const QString& message)
        : std::runtime_error(message.toStdString())
    {
    }
};

/// Whether size and data of a frame agree, so that it can be recorded.
bool isRecordable(const Frame& frame);

/// Writes one recording, frame after frame.
///
/// Until close() the file lacks its index, which a reader then makes up for.
/// Thread safety: thread-bound.
class RecordingFile
{
public:
    /// Creates the file, which must not exist. @throws RecordingError
    RecordingFile(const QString& path, const QJsonObject& metadata);

    /// Appends a recordable frame. After an error the frames before it can still be read.
    /// @throws RecordingError
    void append(const Frame& frame);

    /// Writes index and tail, and waits until the file is on the disk. @throws RecordingError
    void close();

    QString path() const { return m_file.fileName(); }
    quint64 frameCount() const { return m_offsets.size(); }
    quint64 bytes() const { return m_bytes; }

private:
    void write(const void* data, quint64 bytes);
    void pad();

    QFile m_file;
    quint64 m_bytes = 0;
    qint64 m_firstArrival = 0;
    std::vector<quint64> m_offsets;
};

} // namespace zrnrecording
