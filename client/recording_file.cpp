#include "client/recording_file.h"

#include "client/block_writer.h"
#include "client/error.h"
#include "client/recording_format.h"
#include "client/recording_notes.h"
#include "client/xxh3.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace zrn
{
namespace
{

using namespace recording;

constexpr mode_t permissions = 0666; // less what the user's mask takes

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
    , m_notes(std::make_unique<NoteWriter>())
{
    if (metadata.size() > maximumMetadataBytes) {
        refuse("its metadata is too long");
    }
    m_file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, permissions);
    if (m_file < 0) {
        refuse(errno == EEXIST ? "there is a file of this name already"
                               : std::generic_category().message(errno));
    }
    try {
        begin(metadata);
    } catch (const std::system_error& error) {
        m_blocks.reset();
        ::close(m_file);
        ::unlink(path.c_str()); // it holds nothing
        refuse(error.code().message());
    }
}

RecordingFile::~RecordingFile()
{
    m_blocks.reset();
    if (m_file >= 0) {
        ::close(m_file);
    }
}

void RecordingFile::begin(std::string_view metadata)
{
    std::vector<std::uint8_t> text(metadata.begin(), metadata.end());
    text.resize(padded(text.size()), ' ');
    m_blocks = std::make_unique<BlockWriter>(m_file);
    m_blocks->append(
        encodeFileHeader({writtenVersion, static_cast<std::uint32_t>(text.size()), xxh3(text)}));
    m_blocks->append(text);
    m_blocks->flush();
}

void RecordingFile::append(const Frame& frame)
{
    FrameHeader header;
    header.position = m_offsets.size();
    header.width = frame.width;
    header.height = frame.height;
    header.number = frame.step.number;
    header.missing = frame.step.missing;
    header.arrivalNanoseconds = std::chrono::nanoseconds(frame.arrival.time_since_epoch()).count();
    header.times = frame.times;
    header.wait = frame.wait;
    header.exposure = frame.exposure;
    header.gain = frame.gain;
    header.dropped = frame.dropped;
    for (std::size_t i = 0; i < frame.imageCount; ++i) {
        header.letters.at(i) = frame.stored.at(i).letter;
        header.imageHashes.at(i) = xxh3(frame.stored.at(i).bytes);
    }
    const std::uint64_t offset = bytes();
    try {
        m_blocks->append(encodeFrameHeader(header, m_notes->nextChunk()));
        for (const Image& image : frame.images()) {
            m_blocks->append(image.bytes);
        }
        pad();
    } catch (const std::system_error& error) {
        refuse(error.code().message());
    }
    m_offsets.push_back(offset);
    m_framesEnd = bytes();
}

void RecordingFile::flush()
{
    try {
        m_blocks->flush();
    } catch (const std::system_error& error) {
        refuse(error.code().message());
    }
}

bool RecordingFile::note(const RecordingNote& note)
{
    return m_notes->add(note);
}

bool RecordingFile::note(WallClock::Kind kind, const WallClock::Reading& reading)
{
    return m_notes->add(kind, reading);
}

void RecordingFile::close()
{
    std::vector<std::uint8_t> index;
    index.reserve(m_offsets.size() * sizeof(IndexEntry));
    for (const std::uint64_t offset : m_offsets) {
        const IndexEntry entry = encodeOffset(offset);
        index.insert(index.end(), entry.begin(), entry.end());
    }
    const std::span<const std::uint8_t> notes = m_notes->whole();
    Tail tail;
    tail.notesOffset = bytes();
    tail.notesBytes = notes.size();
    tail.notesHash = xxh3(notes);
    tail.indexOffset = tail.notesOffset + padded(notes.size());
    tail.frameCount = m_offsets.size();
    tail.indexHash = xxh3(index);
    try {
        m_blocks->append(notes);
        pad();
        m_blocks->append(index);
        pad();
        m_blocks->append(encodeTail(tail));
        m_blocks->finish();
    } catch (const std::system_error& error) {
        refuse(error.code().message());
    }
    if (::fsync(m_file) != 0 || ::close(std::exchange(m_file, -1)) != 0) {
        refuse(std::generic_category().message(errno));
    }
}

std::uint64_t RecordingFile::bytes() const
{
    return m_blocks->bytes();
}

std::uint64_t RecordingFile::writtenFrames() const
{
    const std::uint64_t written = writtenBytes();
    const auto endOf = [this](std::uint64_t frame) {
        return frame + 1 < m_offsets.size() ? m_offsets[frame + 1] : m_framesEnd;
    };
    while (m_writtenFrames < m_offsets.size() && endOf(m_writtenFrames) <= written) {
        ++m_writtenFrames;
    }
    return m_writtenFrames;
}

std::uint64_t RecordingFile::writtenBytes() const
{
    return m_blocks->writtenBytes();
}

std::int64_t RecordingFile::freeBytes() const
{
    struct statvfs disk {
    };
    return ::fstatvfs(m_file, &disk) == 0 && disk.f_blocks > 0
               ? static_cast<std::int64_t>(disk.f_bavail * disk.f_frsize)
               : std::numeric_limits<std::int64_t>::max() / 2;
}

bool RecordingFile::isRemoved() const
{
    struct stat status {
    };
    return ::fstat(m_file, &status) == 0 && status.st_nlink == 0;
}

void RecordingFile::pad()
{
    constexpr Block zeros{};
    m_blocks->append(std::span(zeros).first(padded(bytes()) - bytes()));
}

void RecordingFile::refuse(const std::string& why) const
{
    throw Error(Error::Kind::Recording, "NotWritable", m_path + ": " + why);
}

} // namespace zrn
