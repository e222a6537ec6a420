#include "client/recording_format.h"

#include "client/crc32.h"

#include <algorithm>
#include <type_traits>

namespace zrn::recording
{
namespace
{

using Magic = std::array<std::uint8_t, 8>;

// The first byte is no text and the line feed at the end shows a transfer in text mode.
constexpr Magic fileMagic = {0x89, 'Z', 'R', 'N', 'R', 'E', 'C', '\n'};
constexpr Magic frameMagic = {'Z', 'R', 'N', 'F', 'R', 'A', 'M', 'E'};
constexpr Magic tailMagic = {'Z', 'R', 'N', 'T', 'A', 'I', 'L', '\n'};

// Places of the fields; the magic stands at 0, the CRC of the header at its end.
constexpr std::size_t headerCrcAt = blockSize - 4;

constexpr std::size_t versionAt = 8;
constexpr std::size_t metadataBytesAt = 12;

constexpr std::size_t positionAt = 8;
constexpr std::size_t arrivalAt = 16;
constexpr std::size_t widthAt = 24;
constexpr std::size_t heightAt = 28;
constexpr std::size_t numberAt = 32;
constexpr std::size_t missingAt = 36;
constexpr std::size_t lettersAt = 40;
constexpr std::size_t payloadCrcAt = 44;

constexpr std::size_t indexOffsetAt = 8;
constexpr std::size_t frameCountAt = 16;
constexpr std::size_t indexCrcAt = 24;

constexpr std::uint32_t maximumEdge = 65535; ///< USB cameras state their frame sizes in 16 bits

template <typename Bytes, typename Number>
void put(Bytes& bytes, std::size_t at, Number number)
{
    const auto bits = static_cast<std::make_unsigned_t<Number>>(number);
    for (std::size_t i = 0; i < sizeof(Number); ++i) {
        bytes[at + i] = static_cast<std::uint8_t>(bits >> (8 * i));
    }
}

template <typename Number, typename Bytes>
Number get(const Bytes& bytes, std::size_t at)
{
    std::make_unsigned_t<Number> bits = 0;
    for (std::size_t i = sizeof(Number); i > 0; --i) {
        bits = static_cast<decltype(bits)>(std::uint64_t{bits} << 8 | bytes[at + i - 1]);
    }
    return static_cast<Number>(bits);
}

Block begin(const Magic& magic)
{
    Block block{};
    std::ranges::copy(magic, block.begin());
    return block;
}

std::uint32_t headerCrc(const Block& block)
{
    return crc32(std::span(block).first(headerCrcAt));
}

Block& seal(Block& block)
{
    put(block, headerCrcAt, headerCrc(block));
    return block;
}

bool isSealed(const Block& block, const Magic& magic)
{
    return std::equal(magic.begin(), magic.end(), block.begin()) &&
           get<std::uint32_t>(block, headerCrcAt) == headerCrc(block);
}

bool isEdge(std::uint32_t pixels)
{
    return pixels > 0 && pixels <= maximumEdge;
}

bool isLetter(char letter)
{
    return letter == 'A' || letter == 'B';
}

} // namespace

std::uint64_t padded(std::uint64_t bytes)
{
    return (bytes + blockSize - 1) / blockSize * blockSize;
}

std::uint64_t FrameHeader::imageBytes() const
{
    return std::uint64_t{width} * height + Image::trailerBytes;
}

Block encodeFileHeader(std::uint32_t metadataBytes)
{
    Block block = begin(fileMagic);
    put(block, versionAt, formatVersion);
    put(block, metadataBytesAt, metadataBytes);
    return seal(block);
}

std::optional<std::uint32_t> decodeFileHeader(const Block& block)
{
    if (!isSealed(block, fileMagic) || get<std::uint32_t>(block, versionAt) != formatVersion) {
        return std::nullopt;
    }
    const auto metadataBytes = get<std::uint32_t>(block, metadataBytesAt);
    return metadataBytes <= maximumMetadataBytes ? std::optional(metadataBytes) : std::nullopt;
}

Block encodeFrameHeader(const FrameHeader& header)
{
    Block block = begin(frameMagic);
    put(block, positionAt, header.position);
    put(block, arrivalAt, header.arrivalNanoseconds);
    put(block, widthAt, header.width);
    put(block, heightAt, header.height);
    put(block, numberAt, header.number);
    put(block, missingAt, header.missing);
    for (std::size_t i = 0; i < header.letters.size(); ++i) {
        block[lettersAt + i] = static_cast<std::uint8_t>(header.letters[i]);
    }
    put(block, payloadCrcAt, header.payloadCrc);
    return seal(block);
}

std::optional<FrameHeader> decodeFrameHeader(const Block& block)
{
    if (!isSealed(block, frameMagic)) {
        return std::nullopt;
    }
    FrameHeader header;
    header.position = get<std::uint64_t>(block, positionAt);
    header.arrivalNanoseconds = get<std::int64_t>(block, arrivalAt);
    header.width = get<std::uint32_t>(block, widthAt);
    header.height = get<std::uint32_t>(block, heightAt);
    header.number = get<std::uint32_t>(block, numberAt);
    header.missing = get<std::uint32_t>(block, missingAt);
    for (std::size_t i = 0; i < header.letters.size(); ++i) {
        header.letters[i] = static_cast<char>(block[lettersAt + i]);
    }
    header.payloadCrc = get<std::uint32_t>(block, payloadCrcAt);
    const bool possible = isEdge(header.width) && isEdge(header.height) &&
                          header.imageBytes() <= maximumImageBytes && isLetter(header.letters[0]) &&
                          (header.letters[1] == 0 || isLetter(header.letters[1]));
    return possible ? std::optional(header) : std::nullopt;
}

Block encodeTail(const Tail& tail)
{
    Block block = begin(tailMagic);
    put(block, indexOffsetAt, tail.indexOffset);
    put(block, frameCountAt, tail.frameCount);
    put(block, indexCrcAt, tail.indexCrc);
    return seal(block);
}

std::optional<Tail> decodeTail(const Block& block)
{
    if (!isSealed(block, tailMagic)) {
        return std::nullopt;
    }
    return Tail{get<std::uint64_t>(block, indexOffsetAt), get<std::uint64_t>(block, frameCountAt),
                get<std::uint32_t>(block, indexCrcAt)};
}

std::uint32_t payloadCrc(const Frame& frame)
{
    std::uint32_t crc = 0;
    for (const Image& image : frame.images()) {
        crc = crc32(image.bytes, crc);
    }
    return crc;
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
