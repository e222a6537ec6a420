#pragma once

#include "recording/recording_file.h"

namespace zrnrecording
{

/// Reads a recording, any frame in any order. Never reads beyond the file, whatever its bytes say.
///
/// Thread safety: thread-bound.
class RecordingReader
{
public:
    /// Opens and finds the frames. @throws RecordingError when the file is no recording.
    explicit RecordingReader(const QString& path);

    const QJsonObject& metadata() const { return m_metadata; }
    int frameCount() const { return static_cast<int>(m_offsets.size()); }
    quint64 bytes() const { return m_size; }

    /// Whether the writer closed the recording. If not, the frames up to the cut are there.
    bool isComplete() const { return m_complete; }
    /// Bytes behind the last whole frame of a recording that is not complete.
    quint64 lostBytes() const { return m_lostBytes; }

    /// What is known about a frame without reading its images. @throws RecordingError
    FrameHeader header(int position) const;
    /// A frame with its images, checked. @throws RecordingError when it was damaged.
    Frame frame(int position) const;

    /// From the first frame to the last readable one; 0 with less than two frames.
    qint64 durationNanoseconds() const;

private:
    Block blockAt(quint64 offset) const;
    bool readIndex(quint64 firstFrame);
    void findFrames(quint64 firstFrame);
    /// The header at @p offset if the whole frame lies in front of @p end.
    std::optional<FrameHeader> frameAt(quint64 offset, quint64 end) const;
    [[noreturn]] void refuse(const QString& why) const;

    mutable QFile m_file;
    quint64 m_size = 0;
    const unsigned char* m_data = nullptr; // the whole file, mapped
    QJsonObject m_metadata;
    std::vector<quint64> m_offsets;
    bool m_complete = false;
    quint64 m_lostBytes = 0;
};

} // namespace zrnrecording
