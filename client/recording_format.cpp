#include "client/recording_format.h"

#include "client/crc32.h"
#include "client/little_endian.h"
#include "client/recording_version1.h"
#include "client/xxh3.h"

#include <algorithm>

namespace zrn::recording
{
namespace
{

using little_endian::get;
using little_endian::put;
using version1::Magic;

// The file begins the same in every version, which stands behind.
constexpr Magic frameMagic2 = {'Z', 'R', 'N', 'F', 'R', 'A', 'M', '2'};
constexpr Magic tailMagic2 = {'Z', 'R', 'N', 'T', 'A', 'I', 'L', '2'};

// Places of the fields; the magic stands at 0, the hash of the header in its last 8 bytes.
constexpr std::size_t hashBytes = sizeof(std::uint64_t);

constexpr std::size_t versionAt = version1::versionAt;
constexpr std::size_t metadataBytesAt = version1::metadataBytesAt;
constexpr std::size_t metadataHashAt = 16;

constexpr std::size_t positionAt = 8;
constexpr std::size_t widthAt = 16;
constexpr std::size_t heightAt = 20;
constexpr std::size_t numberAt = 24;
constexpr std::size_t missingAt = 28;
constexpr std::size_t droppedAt = 32;
constexpr std::size_t lettersAt = 36;
constexpr std::size_t sourceAt = 38;
constexpr std::size_t clockFlagsAt = 39;
constexpr std::size_t arrivalAt = 40;
constexpr std::size_t firstPayloadAt = 48;
constexpr std::size_t lastPayloadAt = 56;
constexpr std::size_t handOverAt = 64;
constexpr std::size_t waitAt = 72;
constexpr std::size_t exposureAt = 80;
constexpr std::size_t gainAt = 88;
constexpr std::size_t cameraHzAt = 92;
constexpr std::size_t capturedAt = 96;
constexpr std::size_t sentAt = 100;
constexpr std::size_t imageHashesAt = 104;
constexpr std::size_t noteBytesAt = 120;
constexpr std::size_t firstRecordAt = 122;
constexpr std::size_t notesAt = 128;
static_assert(notesAt + noteChunkBytes + hashBytes == frameHeaderBytes2);

constexpr std::uint8_t capturedFlag = 1;
constexpr std::uint8_t sentFlag = 2;
constexpr auto lastSource = static_cast<std::uint8_t>(FrameTimes::Source::Payload);

constexpr std::size_t indexOffsetAt = 8;
constexpr std::size_t frameCountAt = 16;
constexpr std::size_t indexHashAt = 24;
constexpr std::size_t notesOffsetAt = 32;
constexpr std::size_t tailNotesBytesAt = 40;
constexpr std::size_t notesHashAt = 48;

constexpr std::uint32_t maximumEdge = 65535; ///< USB cameras state their frame sizes in 16 bits

bool begins(std::span<const std::uint8_t> bytes, const Magic& magic)
{
    return std::equal(magic.begin(), magic.end(), bytes.begin());
}

std::uint64_t headerHash(std::span<const std::uint8_t> header)
{
    return xxh3(header.first(header.size() - hashBytes));
}

bool isSealed(std::span<const std::uint8_t> header, const Magic& magic)
{
    return begins(header, magic) &&
           get<std::uint64_t>(header, header.size() - hashBytes) == headerHash(header);
}

template <typename Bytes>
Bytes begin(const Magic& magic)
{
    Bytes bytes{};
    std::ranges::copy(magic, bytes.begin());
    return bytes;
}

template <typename Bytes>
Bytes& seal(Bytes& header)
{
    put(header, header.size() - hashBytes, headerHash(header));
    return header;
}

bool isEdge(std::uint32_t pixels)
{
    return pixels > 0 && pixels <= maximumEdge;
}

bool isLetter(char letter)
{
    return letter == 'A' || letter == 'B';
}

std::int64_t encodeTime(FrameTimes::time_point time)
{
    return std::clamp<std::int64_t>(std::chrono::nanoseconds(time.time_since_epoch()).count(),
                                    -maximumMonotonic, maximumMonotonic);
}

FrameTimes::time_point decodeTime(std::span<const std::uint8_t> bytes, std::size_t at)
{
    return FrameTimes::time_point(std::chrono::nanoseconds(get<std::int64_t>(bytes, at)));
}

bool isTime(std::span<const std::uint8_t> bytes, std::size_t at)
{
    const auto time = get<std::int64_t>(bytes, at);
    return time >= -maximumMonotonic && time <= maximumMonotonic;
}

std::optional<FrameHeader> decodeFrameHeader2(std::span<const std::uint8_t> bytes)
{
    if (!isSealed(bytes, frameMagic2) || bytes[sourceAt] > lastSource ||
        !isTime(bytes, arrivalAt) || !isTime(bytes, firstPayloadAt) ||
        !isTime(bytes, lastPayloadAt) || !isTime(bytes, handOverAt) ||
        get<std::uint16_t>(bytes, noteBytesAt) > noteChunkBytes ||
        get<std::uint16_t>(bytes, firstRecordAt) > get<std::uint16_t>(bytes, noteBytesAt)) {
        return std::nullopt;
    }
    FrameHeader header;
    header.position = get<std::uint64_t>(bytes, positionAt);
    header.width = get<std::uint32_t>(bytes, widthAt);
    header.height = get<std::uint32_t>(bytes, heightAt);
    header.number = get<std::uint32_t>(bytes, numberAt);
    header.missing = get<std::uint32_t>(bytes, missingAt);
    header.dropped = get<std::uint32_t>(bytes, droppedAt);
    header.arrivalNanoseconds = get<std::int64_t>(bytes, arrivalAt);
    header.times.source = static_cast<FrameTimes::Source>(bytes[sourceAt]);
    header.times.firstPayload = decodeTime(bytes, firstPayloadAt);
    header.times.lastPayload = decodeTime(bytes, lastPayloadAt);
    header.times.handOver = decodeTime(bytes, handOverAt);
    if ((bytes[clockFlagsAt] & capturedFlag) != 0) {
        header.times.captured = get<std::uint32_t>(bytes, capturedAt);
    }
    if ((bytes[clockFlagsAt] & sentFlag) != 0) {
        header.times.sent = get<std::uint32_t>(bytes, sentAt);
    }
    header.times.cameraHz = get<std::uint32_t>(bytes, cameraHzAt);
    header.wait = std::chrono::nanoseconds(get<std::int64_t>(bytes, waitAt));
    header.exposure = std::chrono::microseconds(get<std::int64_t>(bytes, exposureAt));
    header.gain = get<std::uint32_t>(bytes, gainAt);
    for (std::size_t i = 0; i < header.letters.size(); ++i) {
        header.letters.at(i) = static_cast<char>(bytes[lettersAt + i]);
        header.imageHashes.at(i) = get<std::uint64_t>(bytes, imageHashesAt + i * hashBytes);
    }
    return header;
}

} // namespace

std::uint64_t padded(std::uint64_t bytes)
{
    return (bytes + blockSize - 1) / blockSize * blockSize;
}

std::size_t frameHeaderBytes(int version)
{
    return version == 1 ? blockSize : frameHeaderBytes2;
}

std::uint64_t hashOf(int version, std::span<const std::uint8_t> bytes)
{
    return version == 1 ? crc32(bytes) : xxh3(bytes);
}

std::uint64_t FrameHeader::imageBytes() const
{
    return std::uint64_t{width} * height + Image::trailerBytes;
}

bool FrameHeader::isPossible() const
{
    return isEdge(width) && isEdge(height) && imageBytes() <= maximumImageBytes &&
           isLetter(letters[0]) && (letters[1] == 0 || isLetter(letters[1]));
}

bool isDamagedFileHeader(const Block& block)
{
    return begins(block, version1::fileMagic) && !isSealed(block, version1::fileMagic) &&
           !version1::isSealed(block, version1::fileMagic);
}

Block encodeFileHeader(const FileHeader& header)
{
    auto block = begin<Block>(version1::fileMagic);
    put(block, versionAt, static_cast<std::uint32_t>(header.version));
    put(block, metadataBytesAt, header.metadataBytes);
    put(block, metadataHashAt, header.metadataHash);
    return seal(block);
}

std::optional<FileHeader> decodeFileHeader(const Block& block)
{
    std::optional<FileHeader> header = version1::decodeFileHeader(block);
    if (!header && isSealed(block, version1::fileMagic) &&
        get<std::uint32_t>(block, versionAt) == writtenVersion) {
        header = FileHeader{writtenVersion, get<std::uint32_t>(block, metadataBytesAt),
                            get<std::uint64_t>(block, metadataHashAt)};
    }
    return header && header->metadataBytes <= maximumMetadataBytes ? header : std::nullopt;
}

FrameBlock encodeFrameHeader(const FrameHeader& header, const NoteChunk& notes)
{
    auto bytes = begin<FrameBlock>(frameMagic2);
    put(bytes, positionAt, header.position);
    put(bytes, widthAt, header.width);
    put(bytes, heightAt, header.height);
    put(bytes, numberAt, header.number);
    put(bytes, missingAt, header.missing);
    put(bytes, droppedAt, header.dropped);
    put(bytes, arrivalAt,
        std::clamp(header.arrivalNanoseconds, -maximumMonotonic, maximumMonotonic));
    bytes[sourceAt] = static_cast<std::uint8_t>(header.times.source);
    bytes[clockFlagsAt] = static_cast<std::uint8_t>((header.times.captured ? capturedFlag : 0) |
                                                    (header.times.sent ? sentFlag : 0));
    put(bytes, firstPayloadAt, encodeTime(header.times.firstPayload));
    put(bytes, lastPayloadAt, encodeTime(header.times.lastPayload));
    put(bytes, handOverAt, encodeTime(header.times.handOver));
    put(bytes, capturedAt, header.times.captured.value_or(0));
    put(bytes, sentAt, header.times.sent.value_or(0));
    put(bytes, cameraHzAt, header.times.cameraHz);
    put(bytes, waitAt, std::int64_t{header.wait.count()});
    put(bytes, exposureAt, std::int64_t{header.exposure.count()});
    put(bytes, gainAt, header.gain);
    for (std::size_t i = 0; i < header.letters.size(); ++i) {
        bytes.at(lettersAt + i) = static_cast<std::uint8_t>(header.letters.at(i));
        put(bytes, imageHashesAt + i * hashBytes, header.imageHashes.at(i));
    }
    put(bytes, noteBytesAt, static_cast<std::uint16_t>(notes.bytes.size()));
    put(bytes, firstRecordAt, static_cast<std::uint16_t>(notes.firstRecord));
    std::ranges::copy(notes.bytes, bytes.begin() + notesAt);
    return seal(bytes);
}

bool isMarkedAsFrame(int version, std::span<const std::uint8_t> bytes)
{
    return begins(bytes, version == 1 ? version1::frameMagic : frameMagic2);
}

std::optional<FrameHeader> decodeFrameHeader(int version, std::span<const std::uint8_t> bytes)
{
    const std::optional<FrameHeader> header =
        version == 1 ? version1::decodeFrameHeader(bytes) : decodeFrameHeader2(bytes);
    return header && header->isPossible() ? header : std::nullopt;
}

NoteChunk notesOf(std::span<const std::uint8_t> header)
{
    return {header.subspan(notesAt, get<std::uint16_t>(header, noteBytesAt)),
            get<std::uint16_t>(header, firstRecordAt)};
}

Block encodeTail(const Tail& tail)
{
    auto block = begin<Block>(tailMagic2);
    put(block, indexOffsetAt, tail.indexOffset);
    put(block, frameCountAt, tail.frameCount);
    put(block, indexHashAt, tail.indexHash);
    put(block, notesOffsetAt, tail.notesOffset);
    put(block, tailNotesBytesAt, tail.notesBytes);
    put(block, notesHashAt, tail.notesHash);
    return seal(block);
}

std::optional<Tail> decodeTail(int version, const Block& block)
{
    if (version == 1) {
        return version1::decodeTail(block);
    }
    if (!isSealed(block, tailMagic2)) {
        return std::nullopt;
    }
    return Tail{
        get<std::uint64_t>(block, indexOffsetAt),    get<std::uint64_t>(block, frameCountAt),
        get<std::uint64_t>(block, indexHashAt),      get<std::uint64_t>(block, notesOffsetAt),
        get<std::uint64_t>(block, tailNotesBytesAt), get<std::uint64_t>(block, notesHashAt)};
}

IndexEntry encodeOffset(std::uint64_t offset)
{
    IndexEntry entry{};
    put(entry, 0, offset);
    return entry;
}

std::uint64_t decodeOffset(const IndexEntry& entry)
{
    return get<std::uint64_t>(entry, 0);
}

} // namespace zrn::recording
