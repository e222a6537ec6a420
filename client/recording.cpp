#include "client/recording.h"

#include "client/crc32.h"
#include "client/error.h"
#include "client/recording_notes.h"
#include "client/xxh3.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace zrn
{

using namespace recording;

/// A file in memory.
class Recording::Mapping
{
public:
    /// @throws std::system_error
    explicit Mapping(const std::string& path)
        : m_descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))
    {
        if (m_descriptor < 0) {
            fail(errno);
        }
        struct stat status {
        };
        int error = ::fstat(m_descriptor, &status) == 0 ? 0 : errno;
        if (error == 0 && S_ISDIR(status.st_mode)) {
            error = EISDIR;
        }
        const auto size = static_cast<std::size_t>(status.st_size);
        if (error == 0 && size > 0) {
            // Libraries that write to images all the same write to copies of its pages.
            void* const data = ::mmap(nullptr, size, PROT_READ | PROT_WRITE,
                                      MAP_PRIVATE | MAP_NORESERVE, m_descriptor, 0);
            if (data == MAP_FAILED) {
                error = errno;
            } else {
                m_bytes = {static_cast<const std::uint8_t*>(data), size};
            }
        }
        if (error != 0) {
            closeDescriptor();
            fail(error);
        }
    }
    ~Mapping()
    {
        closeDescriptor();
        if (!m_bytes.empty()) {
            ::munmap(const_cast<std::uint8_t*>(m_bytes.data()), m_bytes.size());
        }
    }
    Mapping(const Mapping&) = delete;
    Mapping& operator=(const Mapping&) = delete;

    [[nodiscard]] std::span<const std::uint8_t> bytes() const { return m_bytes; }

    /// The first byte from @p offset on that is no hole of the file; its end when there is none.
    [[nodiscard]] std::uint64_t nextData(std::uint64_t offset) const
    {
        const off_t found = ::lseek(m_descriptor, static_cast<off_t>(offset), SEEK_DATA);
        return found >= 0 ? static_cast<std::uint64_t>(found)
                          : (errno == ENXIO ? m_bytes.size() : offset);
    }
    /// The first byte from @p offset on that is one.
    [[nodiscard]] std::uint64_t nextHole(std::uint64_t offset) const
    {
        const off_t found = ::lseek(m_descriptor, static_cast<off_t>(offset), SEEK_HOLE);
        return found >= 0 ? static_cast<std::uint64_t>(found) : m_bytes.size();
    }
    /// Bytes from @p begin to @p end that lie in none.
    [[nodiscard]] std::uint64_t dataBetween(std::uint64_t begin, std::uint64_t end) const
    {
        std::uint64_t bytes = 0;
        for (std::uint64_t data = nextData(begin); data < end; data = nextData(begin)) {
            begin = std::max(std::min(nextHole(data), end), data + 1);
            bytes += begin - data;
        }
        return bytes;
    }
    /// The bytes stay; the holes cannot be told any more.
    void closeDescriptor()
    {
        if (m_descriptor >= 0) {
            ::close(std::exchange(m_descriptor, -1));
        }
    }

private:
    [[noreturn]] static void fail(int error)
    {
        throw std::system_error(error, std::generic_category());
    }

    int m_descriptor;
    std::span<const std::uint8_t> m_bytes;
};

/// What was noted, and the readings of the clocks.
class Recording::Log
{
public:
    explicit Log(const NoteReader& reader)
        : m_notes(reader.notes())
        , m_realtime(reader.readings(WallClock::Kind::Realtime))
        , m_tai(reader.readings(WallClock::Kind::Tai))
    {
    }

    [[nodiscard]] const std::vector<RecordingNote>& notes() const { return m_notes; }
    [[nodiscard]] std::optional<WallTime> wallTime(FrameTimes::time_point time,
                                                   WallClock::Kind kind) const
    {
        const auto& readings = kind == WallClock::Kind::Tai ? m_tai : m_realtime;
        const auto after =
            std::ranges::upper_bound(readings, time, {}, &WallClock::Reading::monotonic);
        WallClock neighbours;
        if (after != readings.begin()) {
            neighbours.note(*(after - 1));
        }
        if (after != readings.end()) {
            neighbours.note(*after);
        }
        return neighbours.map(time);
    }

private:
    std::vector<RecordingNote> m_notes;
    std::vector<WallClock::Reading> m_realtime;
    std::vector<WallClock::Reading> m_tai;
};

namespace
{

/// What a direct write may add behind the last frame, which close() takes away.
constexpr std::uint64_t largestPadding = 4096;

/// A frame as its header has it. @param images one behind the other
Frame frameOf(const FrameHeader& header, std::span<const std::uint8_t> images)
{
    Frame frame;
    frame.width = header.width;
    frame.height = header.height;
    frame.step.number = header.number;
    frame.step.missing = header.missing;
    frame.arrival =
        std::chrono::steady_clock::time_point(std::chrono::nanoseconds(header.arrivalNanoseconds));
    frame.dropped = header.dropped;
    frame.times = header.times;
    frame.wait = header.wait;
    frame.exposure = header.exposure;
    frame.gain = header.gain;
    frame.imageCount = header.imageCount();
    const auto imageBytes = static_cast<std::size_t>(header.imageBytes());
    for (std::size_t i = 0; i < frame.imageCount; ++i) {
        frame.stored.at(i) = {header.letters.at(i), images.subspan(i * imageBytes, imageBytes)};
    }
    return frame;
}

} // namespace

Recording::Recording(const std::string& path)
    : m_path(path)
{
    std::shared_ptr<Mapping> file;
    try {
        file = std::make_shared<Mapping>(path);
    } catch (const std::system_error& error) {
        refuse("NotReadable", error.code().message());
    }
    m_file = file;
    constexpr const char* notARecording = "NotARecording";
    if (bytes() < blockSize) {
        refuse(notARecording, "too short for a recording");
    }
    if (readHeader()) {
        m_isComplete = readIndex();
        if (!m_isComplete) {
            findFrames();
        }
    } else {
        // Its frames may be whole all the same.
        m_otherDamage.push_back("the header of the file is damaged, and its metadata are lost");
        m_firstFrame = blockSize;
        for (int version = isDamagedFileHeader(blockAt(0)) ? writtenVersion : 0;
             version > 0 && m_offsets.empty(); --version) {
            m_version = version;
            findFrames();
        }
        if (m_offsets.empty()) {
            refuse(notARecording, "no recording, or one of a newer version");
        }
    }
    file->closeDescriptor();
    for (std::size_t i = 0; m_version > 1 && i < m_offsets.size(); ++i) {
        if (const std::optional<FrameHeader> header = readableHeader(i)) {
            m_firstArrival = header->arrivalNanoseconds;
            break;
        }
    }
}

/// @return false when it was damaged @throws Error
bool Recording::readHeader()
{
    const std::optional<FileHeader> header = decodeFileHeader(blockAt(0));
    if (!header) {
        return false;
    }
    m_version = header->version;
    m_firstFrame = padded(blockSize + std::uint64_t{header->metadataBytes});
    if (m_firstFrame > bytes()) {
        refuse("NotARecording", "cut off within its header");
    }
    const auto text = m_file->bytes().subspan(blockSize, header->metadataBytes);
    if (m_version == 1 || xxh3(text) == header->metadataHash) {
        m_metadata.assign(text.begin(), text.end());
        m_metadata.erase(m_metadata.find_last_not_of(' ') + 1);
    } else {
        m_otherDamage.push_back("the metadata are damaged");
    }
    return true;
}

std::uint64_t Recording::bytes() const
{
    return m_file->bytes().size();
}

FrameHeader Recording::header(int position) const
{
    if (position < 0 || position >= frameCount()) {
        refuse("NoSuchFrame", "there is no frame " + std::to_string(position));
    }
    const auto header = readableHeader(static_cast<std::size_t>(position));
    if (!header) {
        refuse("Damaged", "the header of frame " + std::to_string(position) + " is damaged");
    }
    return *header;
}

std::optional<FrameHeader> Recording::readableHeader(std::size_t position) const
{
    const auto header = frameAt(m_offsets[position]);
    return header && header->position == position ? header : std::nullopt;
}

Frame Recording::frame(int position) const
{
    const FrameHeader found = header(position);
    const auto stored = imagesOf(position, found);
    // Its own, so that it stays as it was when it was checked.
    const auto memory =
        std::make_shared<const std::vector<std::uint8_t>>(stored.begin(), stored.end());
    Frame frame = frameOf(found, *memory);
    frame.memory = memory;
    if (!isWholeIn(frame, found)) {
        refuse("Damaged", "the images of frame " + std::to_string(position) + " are damaged");
    }
    return frame;
}

bool Recording::isWholeIn(const Frame& frame, const FrameHeader& found) const
{
    if (m_version == 1) {
        std::uint32_t crc = 0;
        for (const Image& image : frame.images()) {
            crc = crc32(image.bytes, crc);
        }
        return crc == found.payloadCrc;
    }
    return std::ranges::equal(frame.images(), std::span(found.imageHashes).first(frame.imageCount),
                              {}, [](const Image& image) { return xxh3(image.bytes); });
}

std::map<int, std::string> Recording::damage(const std::function<void(int)>& onProgress) const
{
    std::map<int, std::string> damaged;
    for (int position = 0; position < frameCount(); ++position) {
        if (onProgress) {
            onProgress(position);
        }
        try {
            static_cast<void>(frame(position));
        } catch (const Error& error) {
            damaged[position] = error.what();
        }
    }
    return damaged;
}

std::vector<std::string> Recording::otherDamage() const
{
    std::vector<const char*> found = m_otherDamage;
    if (m_version > 1 && m_isComplete && !areClosedNotesWhole()) {
        found.push_back("the notes behind the frames are damaged");
    }
    std::vector<std::string> damage;
    for (const char* const what : found) {
        damage.push_back(m_path + ": " + what);
    }
    return damage;
}

Frame Recording::view(int position) const
{
    const FrameHeader found = header(position);
    Frame frame = frameOf(found, imagesOf(position, found));
    frame.memory = m_file;
    return frame;
}

std::span<const std::uint8_t> Recording::imagesOf(int position, const FrameHeader& found) const
{
    return m_file->bytes().subspan(m_offsets[static_cast<std::size_t>(position)] +
                                       frameHeaderBytes(m_version),
                                   static_cast<std::size_t>(found.payloadBytes()));
}

std::chrono::nanoseconds Recording::duration() const
{
    for (std::size_t i = m_offsets.size(); i > 0; --i) {
        if (const std::optional<FrameHeader> header = readableHeader(i - 1)) {
            return std::chrono::nanoseconds(header->arrivalNanoseconds - m_firstArrival);
        }
    }
    return {};
}

std::chrono::nanoseconds Recording::sinceStart(int position) const
{
    return std::chrono::nanoseconds(header(position).arrivalNanoseconds - m_firstArrival);
}

std::optional<WallTime> Recording::wallTime(FrameTimes::time_point time, WallClock::Kind kind) const
{
    const std::int64_t nanoseconds = std::chrono::nanoseconds(time.time_since_epoch()).count();
    return nanoseconds < -maximumMonotonic || nanoseconds > maximumMonotonic
               ? std::nullopt
               : log().wallTime(time, kind);
}

std::vector<RecordingNote> Recording::notes() const
{
    return log().notes();
}

/// Behind the frames of one that is complete.
std::span<const std::uint8_t> Recording::closedNotes() const
{
    return m_file->bytes().subspan(m_tail.notesOffset, m_tail.notesBytes);
}

bool Recording::areClosedNotesWhole() const
{
    return xxh3(closedNotes()) == m_tail.notesHash;
}

const Recording::Log& Recording::log() const
{
    std::call_once(m_logRead, [this] {
        NoteReader reader;
        if (m_version > 1 && m_isComplete && areClosedNotesWhole()) {
            reader.read({closedNotes(), 0}, true);
        } else if (m_version > 1) {
            bool follows = true;
            for (std::size_t i = 0; i < m_offsets.size(); ++i) {
                const bool isReadable = readableHeader(i).has_value();
                if (isReadable) {
                    reader.read(notesOf(m_file->bytes().subspan(m_offsets[i], frameHeaderBytes2)),
                                follows);
                }
                follows = isReadable;
            }
        }
        m_log = std::make_shared<const Log>(reader);
    });
    return *m_log;
}

std::optional<Recording::Stack> Recording::stack() const
{
    std::optional<FrameHeader> alike; // the first that can be read
    Stack stack;
    for (std::size_t i = 0; i < m_offsets.size(); ++i) {
        const std::optional<FrameHeader> header = readableHeader(i);
        if (header && !alike) {
            alike = header;
            stack = {
                header->width,        header->height,
                frameCount(),         header->imageCount(),
                header->letters,      m_offsets.front() + frameHeaderBytes(m_version),
                header->imageBytes(), frameHeaderBytes(m_version) + padded(header->payloadBytes())};
        }
        if (header && (header->width != alike->width || header->height != alike->height ||
                       header->letters != alike->letters)) {
            return std::nullopt;
        }
    }
    for (std::size_t i = 1; i < m_offsets.size(); ++i) {
        if (m_offsets[i] != m_offsets[i - 1] + stack.frameBytes) {
            return std::nullopt;
        }
    }
    return alike ? std::optional(stack) : std::nullopt;
}

Block Recording::blockAt(std::uint64_t offset) const
{
    Block block;
    std::memcpy(block.data(), m_file->bytes().data() + offset, block.size());
    return block;
}

bool Recording::readIndex()
{
    const std::uint64_t tailOffset = bytes() - blockSize;
    const std::optional<Tail> tail =
        bytes() % blockSize == 0 ? decodeTail(m_version, blockAt(tailOffset)) : std::nullopt;
    const auto isInside = [this, tailOffset](std::uint64_t offset, std::uint64_t size) {
        return offset >= m_firstFrame && offset <= tailOffset && size <= tailOffset - offset;
    };
    if (!tail || tail->frameCount > std::numeric_limits<int>::max() ||
        !isInside(tail->indexOffset, tail->frameCount * sizeof(IndexEntry)) ||
        (m_version > 1 && (tail->notesBytes > maximumNotesBytes ||
                           !isInside(tail->notesOffset, tail->notesBytes)))) {
        return false;
    }
    const auto count = static_cast<std::size_t>(tail->frameCount);
    const auto index = m_file->bytes().subspan(tail->indexOffset, count * sizeof(IndexEntry));
    if (hashOf(m_version, index) != tail->indexHash) {
        m_otherDamage.push_back("the index is damaged");
        return false;
    }
    // Grows with what is there: a hole of the file may say that there are many.
    std::vector<std::uint64_t> offsets;
    for (std::size_t i = 0; i < count; ++i) {
        IndexEntry entry{};
        std::ranges::copy(index.subspan(i * entry.size(), entry.size()), entry.begin());
        offsets.push_back(decodeOffset(entry));
        if (!isInside(offsets.back(), 0)) {
            return false;
        }
    }
    m_offsets = std::move(offsets);
    m_tail = *tail;
    return true;
}

/// Where no index tells: each lies behind the one before it, or behind what of that is damaged.
void Recording::findFrames()
{
    const std::uint64_t smallest = frameHeaderBytes(m_version) + blockSize;
    std::uint64_t end = m_firstFrame; // of the last one
    std::uint64_t counted = 0;        // until here, these bytes are in no hole
    std::uint64_t data = 0;
    // Each lost one was somewhere, and most of what they were is still there.
    const auto mayBeLost = [&](std::uint64_t lost, std::uint64_t offset) {
        data += m_file->dataBetween(counted, offset);
        counted = offset;
        return lost <= (offset - end) / smallest && m_offsets.size() + lost <= data / blockSize;
    };
    std::optional<std::uint64_t> offset = end;
    while (offset) {
        const std::optional<FrameHeader> header = frameAt(*offset);
        const std::uint64_t next = m_offsets.size();
        if (header && header->position >= next &&
            header->position < std::numeric_limits<int>::max() &&
            (header->position == next || mayBeLost(header->position - next, *offset))) {
            // Those between are somewhere behind the last one.
            m_offsets.resize(static_cast<std::size_t>(header->position), end);
            m_offsets.push_back(*offset);
            end = *offset + frameHeaderBytes(m_version) + padded(header->payloadBytes());
            offset = end;
        } else {
            offset = nextMark(*offset + blockSize);
        }
    }
    std::uint64_t used = bytes();
    while (m_version > 1 && used > end && bytes() - used < largestPadding &&
           m_file->bytes()[used - 1] == 0) {
        --used;
    }
    m_lostBytes = used > end ? used - end : 0;
}

/// Where a frame may begin, from @p offset on, which is a multiple of blockSize.
std::optional<std::uint64_t> Recording::nextMark(std::uint64_t offset) const
{
    std::uint64_t hole = offset; // the next one: what is behind has not been asked for
    while (offset <= bytes() && bytes() - offset >= blockSize) {
        if (offset >= hole) {
            offset = m_file->nextData(offset) / blockSize * blockSize;
            hole = std::max(m_file->nextHole(offset), offset + 1);
        } else if (isMarkedAsFrame(m_version, m_file->bytes().subspan(offset, blockSize))) {
            return offset;
        } else {
            offset += blockSize;
        }
    }
    return std::nullopt;
}

std::optional<FrameHeader> Recording::frameAt(std::uint64_t offset) const
{
    const std::size_t headerBytes = frameHeaderBytes(m_version);
    if (offset > bytes() || bytes() - offset < headerBytes) {
        return std::nullopt;
    }
    const std::optional<FrameHeader> header =
        decodeFrameHeader(m_version, m_file->bytes().subspan(offset, headerBytes));
    const bool isWhole = header && header->payloadBytes() <= bytes() - offset - headerBytes;
    return isWhole ? header : std::nullopt;
}

void Recording::refuse(const char* name, const std::string& why) const
{
    throw Error(Error::Kind::Recording, name, m_path + ": " + why);
}

} // namespace zrn
