#include "recording/recording_file.h"

#include <QFileInfo>
#include <QJsonDocument>
#include <QtEndian>

#include <unistd.h>

namespace zrnrecording
{

bool isRecordable(const Frame& frame)
{
    if (frame.images.empty() || frame.images.size() > maximumImages || frame.width < 1 ||
        frame.height < 1) {
        return false;
    }
    const qint64 bytes = qint64{frame.width} * frame.height + imageTrailerBytes;
    if (bytes > qint64{maximumImageBytes}) {
        return false;
    }
    for (const Image& image : frame.images) {
        if (image.data.size() != bytes) {
            return false;
        }
    }
    return true;
}

RecordingFile::RecordingFile(const QString& path, const QJsonObject& metadata)
    : m_file(path)
{
    if (!m_file.open(QIODevice::WriteOnly | QIODevice::NewOnly | QIODevice::Unbuffered)) {
        throw RecordingError(QStringLiteral("%1: %2").arg(
            path, QFileInfo::exists(path) ? QStringLiteral("there is a file of this name already")
                                          : m_file.errorString()));
    }
    QByteArray text = QJsonDocument(metadata).toJson(QJsonDocument::Compact);
    if (static_cast<quint64>(text.size()) > maximumMetadataBytes) {
        throw RecordingError(QStringLiteral("%1: its metadata is too long").arg(path));
    }
    text = text.leftJustified(static_cast<int>(padded(static_cast<quint64>(text.size()))), ' ');
    const Block header = encodeFileHeader(static_cast<quint32>(text.size()));
    write(header.data(), header.size());
    write(text.constData(), static_cast<quint64>(text.size()));
}

void RecordingFile::append(const Frame& frame)
{
    if (m_offsets.empty()) {
        m_firstArrival = frame.arrivalNanoseconds;
    }
    FrameHeader header;
    header.position = m_offsets.size();
    header.width = frame.width;
    header.height = frame.height;
    header.number = frame.number;
    header.missing = frame.missing;
    header.arrivalNanoseconds = frame.arrivalNanoseconds - m_firstArrival;
    for (std::size_t i = 0; i < frame.images.size(); ++i) {
        header.letters.at(i) = frame.images[i].letter;
    }
    header.payloadCrc = payloadCrc(frame);

    const quint64 offset = m_bytes;
    const Block block = encodeFrameHeader(header);
    write(block.data(), block.size());
    for (const Image& image : frame.images) {
        write(image.data.constData(), static_cast<quint64>(image.data.size()));
    }
    pad();
    m_offsets.push_back(offset);
}

void RecordingFile::close()
{
    std::vector<quint64> offsets;
    offsets.reserve(m_offsets.size());
    for (const quint64 offset : m_offsets) {
        offsets.push_back(qToLittleEndian(offset));
    }
    const auto bytes = static_cast<quint64>(offsets.size() * sizeof(quint64));
    Tail tail;
    tail.indexOffset = m_bytes;
    tail.frameCount = m_offsets.size();
    tail.indexCrc = crcOf(
        {reinterpret_cast<const unsigned char*>(offsets.data()), static_cast<std::size_t>(bytes)});
    write(offsets.data(), bytes);
    pad();
    const Block block = encodeTail(tail);
    write(block.data(), block.size());
    if (::fsync(m_file.handle()) != 0) {
        throw RecordingError(QStringLiteral("%1: %2").arg(path(), qt_error_string()));
    }
    m_file.close();
}

void RecordingFile::write(const void* data, quint64 bytes)
{
    if (m_file.write(static_cast<const char*>(data), static_cast<qint64>(bytes)) !=
        static_cast<qint64>(bytes)) {
        throw RecordingError(QStringLiteral("%1: %2").arg(path(), m_file.errorString()));
    }
    m_bytes += bytes;
}

void RecordingFile::pad()
{
    constexpr Block zeros{};
    write(zeros.data(), padded(m_bytes) - m_bytes);
}

} // namespace zrnrecording
