#include "recording/recording_reader.h"

#include <QJsonDocument>
#include <QtEndian>

#include <cstring>

namespace zrnrecording
{

RecordingReader::RecordingReader(const QString& path)
    : m_file(path)
{
    if (!m_file.open(QIODevice::ReadOnly)) {
        refuse(m_file.errorString());
    }
    m_size = static_cast<quint64>(m_file.size());
    if (m_size < blockSize) {
        refuse(QStringLiteral("too short for a recording"));
    }
    m_data = m_file.map(0, m_file.size());
    if (!m_data) {
        refuse(m_file.errorString());
    }
    const std::optional<quint32> metadataBytes = decodeFileHeader(blockAt(0));
    if (!metadataBytes) {
        refuse(QStringLiteral("no recording, or one of a newer version"));
    }
    const quint64 firstFrame = padded(blockSize + quint64{*metadataBytes});
    if (firstFrame > m_size) {
        refuse(QStringLiteral("cut off within its header"));
    }
    m_metadata = QJsonDocument::fromJson(
                     QByteArray::fromRawData(reinterpret_cast<const char*>(m_data + blockSize),
                                             static_cast<int>(*metadataBytes)))
                     .object();
    m_complete = readIndex(firstFrame);
    if (!m_complete) {
        findFrames(firstFrame);
    }
}

FrameHeader RecordingReader::header(int position) const
{
    if (position < 0 || position >= frameCount()) {
        refuse(QStringLiteral("there is no frame %1").arg(position));
    }
    const auto header = frameAt(m_offsets[static_cast<std::size_t>(position)], m_size);
    if (!header || header->position != static_cast<quint64>(position)) {
        refuse(QStringLiteral("the header of frame %1 is damaged").arg(position));
    }
    return *header;
}

Frame RecordingReader::frame(int position) const
{
    const FrameHeader found = header(position);
    Frame frame;
    frame.width = found.width;
    frame.height = found.height;
    frame.number = found.number;
    frame.missing = found.missing;
    frame.arrivalNanoseconds = found.arrivalNanoseconds;
    const auto* data = reinterpret_cast<const char*>(
        m_data + m_offsets[static_cast<std::size_t>(position)] + blockSize);
    const auto imageBytes = static_cast<int>(found.imageBytes());
    for (int i = 0; i < found.imageCount(); ++i) {
        frame.images.push_back(
            {found.letters.at(static_cast<std::size_t>(i)), QByteArray(data, imageBytes)});
        data += imageBytes;
    }
    if (payloadCrc(frame) != found.payloadCrc) {
        refuse(QStringLiteral("the images of frame %1 are damaged").arg(position));
    }
    return frame;
}

qint64 RecordingReader::durationNanoseconds() const
{
    const auto arrival = [this](quint64 offset) -> std::optional<qint64> {
        const auto header = frameAt(offset, m_size);
        return header ? std::optional(header->arrivalNanoseconds) : std::nullopt;
    };
    for (auto last = m_offsets.rbegin(); last != m_offsets.rend(); ++last) {
        if (const std::optional<qint64> nanoseconds = arrival(*last)) {
            return *nanoseconds;
        }
    }
    return 0;
}

Block RecordingReader::blockAt(quint64 offset) const
{
    Block block;
    std::memcpy(block.data(), m_data + offset, block.size());
    return block;
}

bool RecordingReader::readIndex(quint64 firstFrame)
{
    const quint64 tailOffset = m_size - blockSize;
    const std::optional<Tail> tail =
        m_size % blockSize == 0 ? decodeTail(blockAt(tailOffset)) : std::nullopt;
    if (!tail || tail->indexOffset < firstFrame || tail->indexOffset > tailOffset ||
        tail->frameCount > (tailOffset - tail->indexOffset) / sizeof(quint64)) {
        return false;
    }
    const unsigned char* index = m_data + tail->indexOffset;
    const auto count = static_cast<std::size_t>(tail->frameCount);
    if (crcOf({index, count * sizeof(quint64)}) != tail->indexCrc) {
        return false;
    }
    std::vector<quint64> offsets(count);
    for (std::size_t i = 0; i < count; ++i) {
        const auto offset = qFromLittleEndian<quint64>(index + i * sizeof(quint64));
        if (offset < firstFrame || offset > tailOffset) {
            return false;
        }
        offsets[i] = offset;
    }
    m_offsets = std::move(offsets);
    return true;
}

void RecordingReader::findFrames(quint64 firstFrame)
{
    quint64 offset = firstFrame;
    while (const auto header = frameAt(offset, m_size)) {
        if (header->position != m_offsets.size()) {
            break;
        }
        m_offsets.push_back(offset);
        offset += blockSize + padded(header->payloadBytes());
    }
    m_lostBytes = offset < m_size ? m_size - offset : 0;
}

std::optional<FrameHeader> RecordingReader::frameAt(quint64 offset, quint64 end) const
{
    if (offset > end || end - offset < blockSize) {
        return std::nullopt;
    }
    const std::optional<FrameHeader> header = decodeFrameHeader(blockAt(offset));
    const bool isWhole = header && header->payloadBytes() <= end - offset - blockSize;
    return isWhole ? header : std::nullopt;
}

void RecordingReader::refuse(const QString& why) const
{
    throw RecordingError(QStringLiteral("%1: %2").arg(m_file.fileName(), why));
}

} // namespace zrnrecording
