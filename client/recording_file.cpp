#include "client/recording_file.h"

#include "client/crc32.h"
#include "client/error.h"
#include "client/recording_format.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace zrn
{
namespace
{

using namespace recording;

constexpr mode_t permissions = 0666; // less what the user's mask takes

std::string lastError()
{
    return std::generic_category().message(errno);
}

} // namespace

bool isRecordable(const Frame& frame)
{
    if (frame.imageCount < 1 || frame.imageCount > Frame::mostImages || frame.width < 1 ||
        frame.height < 1) {
        return false;
    }
    const std::uint64_t bytes = std::uint64_t{frame.width} * frame.height + Image::trailerBytes;
    return bytes <= maximumImageBytes &&
           std::ranges::all_of(frame.images(),
                               [bytes](const Image& image) { return image.bytes.size() == bytes; });
}

RecordingFile::RecordingFile(const std::string& path, std::string_view metadata)
    : m_path(path)
{
    if (metadata.size() > maximumMetadataBytes) {
        refuse("its metadata is too long");
    }
    m_file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, permissions);
    if (m_file < 0) {
        refuse(errno == EEXIST ? "there is a file of this name already" : lastError());
    }
    std::vector<std::uint8_t> text(metadata.begin(), metadata.end());
    text.resize(padded(text.size()), ' ');
    try {
        write(encodeFileHeader(static_cast<std::uint32_t>(text.size())));
        write(text);
    } catch (...) {
        ::close(m_file);
        ::unlink(path.c_str()); // it holds nothing
        throw;
    }
}

RecordingFile::~RecordingFile()
{
    if (m_file >= 0) {
        ::close(m_file);
    }
}

void RecordingFile::append(const Frame& frame)
{
    if (m_offsets.empty()) {
        m_firstArrival = frame.arrival;
    }
    FrameHeader header;
    header.position = m_offsets.size();
    header.width = frame.width;
    header.height = frame.height;
    header.number = frame.step.number;
    header.missing = frame.step.missing;
    header.arrivalNanoseconds = std::chrono::nanoseconds(frame.arrival - m_firstArrival).count();
    for (std::size_t i = 0; i < frame.imageCount; ++i) {
        header.letters.at(i) = frame.stored.at(i).letter;
    }
    header.payloadCrc = payloadCrc(frame);

    const std::uint64_t offset = m_bytes;
    write(encodeFrameHeader(header));
    for (const Image& image : frame.images()) {
        write(image.bytes);
    }
    pad();
    m_offsets.push_back(offset);
}

void RecordingFile::close()
{
    std::vector<std::uint8_t> index;
    index.reserve(m_offsets.size() * sizeof(IndexEntry));
    for (const std::uint64_t offset : m_offsets) {
        const IndexEntry entry = encodeOffset(offset);
        index.insert(index.end(), entry.begin(), entry.end());
    }
    Tail tail;
    tail.indexOffset = m_bytes;
    tail.frameCount = m_offsets.size();
    tail.indexCrc = crc32(index);
    write(index);
    pad();
    write(encodeTail(tail));
    if (::fsync(m_file) != 0 || ::close(std::exchange(m_file, -1)) != 0) {
        refuse(lastError());
    }
}

void RecordingFile::write(std::span<const std::uint8_t> bytes)
{
    for (std::span<const std::uint8_t> left = bytes; !left.empty();) {
        const ssize_t written = ::write(m_file, left.data(), left.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            refuse(written < 0 ? lastError() : "nothing more can be written to it");
        }
        left = left.subspan(static_cast<std::size_t>(written));
    }
    m_bytes += bytes.size();
}

void RecordingFile::pad()
{
    constexpr Block zeros{};
    write(std::span(zeros).first(padded(m_bytes) - m_bytes));
}

void RecordingFile::refuse(const std::string& why) const
{
    throw Error(Error::Kind::Recording, "NotWritable", m_path + ": " + why);
}

} // namespace zrn
