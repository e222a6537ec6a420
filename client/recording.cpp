#include "client/recording.h"

#include "client/crc32.h"
#include "client/error.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace zrn
{

using namespace recording;

/// A file in memory.
class Recording::Mapping
{
public:
    /// @throws std::system_error
    explicit Mapping(const std::string& path)
    {
        const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (file < 0) {
            fail(errno);
        }
        struct stat status {
        };
        int error = ::fstat(file, &status) == 0 ? 0 : errno;
        if (error == 0 && S_ISDIR(status.st_mode)) {
            error = EISDIR;
        }
        const auto size = static_cast<std::size_t>(status.st_size);
        if (error == 0 && size > 0) {
            // Libraries that write to images all the same write to copies of its pages.
            void* const data =
                ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_NORESERVE, file, 0);
            if (data == MAP_FAILED) {
                error = errno;
            } else {
                m_bytes = {static_cast<const std::uint8_t*>(data), size};
            }
        }
        ::close(file);
        if (error != 0) {
            fail(error);
        }
    }
    ~Mapping()
    {
        if (!m_bytes.empty()) {
            ::munmap(const_cast<std::uint8_t*>(m_bytes.data()), m_bytes.size());
        }
    }
    Mapping(const Mapping&) = delete;
    Mapping& operator=(const Mapping&) = delete;

    [[nodiscard]] std::span<const std::uint8_t> bytes() const { return m_bytes; }

private:
    [[noreturn]] static void fail(int error)
    {
        throw std::system_error(error, std::generic_category());
    }

    std::span<const std::uint8_t> m_bytes;
};

namespace
{

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
    try {
        m_file = std::make_shared<const Mapping>(path);
    } catch (const std::system_error& error) {
        refuse("NotReadable", error.code().message());
    }
    constexpr const char* notARecording = "NotARecording";
    if (bytes() < blockSize) {
        refuse(notARecording, "too short for a recording");
    }
    const std::optional<std::uint32_t> metadataBytes = decodeFileHeader(blockAt(0));
    if (!metadataBytes) {
        refuse(notARecording, "no recording, or one of a newer version");
    }
    const std::uint64_t firstFrame = padded(blockSize + std::uint64_t{*metadataBytes});
    if (firstFrame > bytes()) {
        refuse(notARecording, "cut off within its header");
    }
    const auto text = m_file->bytes().subspan(blockSize, *metadataBytes);
    m_metadata.assign(text.begin(), text.end());
    m_metadata.erase(m_metadata.find_last_not_of(' ') + 1);
    m_isComplete = readIndex(firstFrame);
    if (!m_isComplete) {
        findFrames(firstFrame);
    }
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
    const auto header = frameAt(m_offsets[static_cast<std::size_t>(position)]);
    if (!header || header->position != static_cast<std::uint64_t>(position)) {
        refuse("Damaged", "the header of frame " + std::to_string(position) + " is damaged");
    }
    return *header;
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
    if (payloadCrc(frame) != found.payloadCrc) {
        refuse("Damaged", "the images of frame " + std::to_string(position) + " are damaged");
    }
    return frame;
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

Frame Recording::view(int position) const
{
    const FrameHeader found = header(position);
    Frame frame = frameOf(found, imagesOf(position, found));
    frame.memory = m_file;
    return frame;
}

std::span<const std::uint8_t> Recording::imagesOf(int position, const FrameHeader& found) const
{
    return m_file->bytes().subspan(m_offsets[static_cast<std::size_t>(position)] + blockSize,
                                   static_cast<std::size_t>(found.payloadBytes()));
}

std::chrono::nanoseconds Recording::duration() const
{
    for (auto last = m_offsets.rbegin(); last != m_offsets.rend(); ++last) {
        if (const std::optional<FrameHeader> header = frameAt(*last)) {
            return std::chrono::nanoseconds(header->arrivalNanoseconds);
        }
    }
    return {};
}

std::chrono::nanoseconds Recording::sinceStart(int position) const
{
    return std::chrono::nanoseconds(header(position).arrivalNanoseconds);
}

int Recording::version() const
{
    return static_cast<int>(formatVersion);
}

std::optional<WallTime> Recording::wallTime(FrameTimes::time_point, WallClock::Kind) const
{
    return std::nullopt;
}

std::vector<RecordingNote> Recording::notes() const
{
    return {};
}

std::optional<Recording::Stack> Recording::stack() const
{
    if (m_offsets.empty()) {
        return std::nullopt;
    }
    const FrameHeader first = header(0);
    Stack stack{first.width,
                first.height,
                frameCount(),
                first.imageCount(),
                m_offsets.front() + blockSize,
                first.imageBytes(),
                blockSize + padded(first.payloadBytes())};
    for (int i = 1; i < frameCount(); ++i) {
        const FrameHeader next = header(i);
        if (next.width != first.width || next.height != first.height ||
            next.letters != first.letters ||
            m_offsets[static_cast<std::size_t>(i)] - m_offsets[static_cast<std::size_t>(i) - 1] !=
                stack.frameBytes) {
            return std::nullopt;
        }
    }
    return stack;
}

Block Recording::blockAt(std::uint64_t offset) const
{
    Block block;
    std::memcpy(block.data(), m_file->bytes().data() + offset, block.size());
    return block;
}

bool Recording::readIndex(std::uint64_t firstFrame)
{
    const std::uint64_t tailOffset = bytes() - blockSize;
    const std::optional<Tail> tail =
        bytes() % blockSize == 0 ? decodeTail(blockAt(tailOffset)) : std::nullopt;
    if (!tail || tail->indexOffset < firstFrame || tail->indexOffset > tailOffset ||
        tail->frameCount > (tailOffset - tail->indexOffset) / sizeof(IndexEntry)) {
        return false;
    }
    const auto count = static_cast<std::size_t>(tail->frameCount);
    const auto index = m_file->bytes().subspan(tail->indexOffset, count * sizeof(IndexEntry));
    if (crc32(index) != tail->indexCrc) {
        return false;
    }
    std::vector<std::uint64_t> offsets(count);
    for (std::size_t i = 0; i < count; ++i) {
        IndexEntry entry{};
        std::ranges::copy(index.subspan(i * entry.size(), entry.size()), entry.begin());
        offsets[i] = decodeOffset(entry);
        if (offsets[i] < firstFrame || offsets[i] > tailOffset) {
            return false;
        }
    }
    m_offsets = std::move(offsets);
    return true;
}

void Recording::findFrames(std::uint64_t firstFrame)
{
    std::uint64_t offset = firstFrame;
    while (const auto header = frameAt(offset)) {
        if (header->position != m_offsets.size()) {
            break;
        }
        m_offsets.push_back(offset);
        offset += blockSize + padded(header->payloadBytes());
    }
    m_lostBytes = offset < bytes() ? bytes() - offset : 0;
}

std::optional<FrameHeader> Recording::frameAt(std::uint64_t offset) const
{
    if (offset > bytes() || bytes() - offset < blockSize) {
        return std::nullopt;
    }
    const std::optional<FrameHeader> header = decodeFrameHeader(blockAt(offset));
    const bool isWhole = header && header->payloadBytes() <= bytes() - offset - blockSize;
    return isWhole ? header : std::nullopt;
}

void Recording::refuse(const char* name, const std::string& why) const
{
    throw Error(Error::Kind::Recording, name, m_path + ": " + why);
}

} // namespace zrn
