#include "recording/recording_format.h"

#include <QtEndian>

#include <cstring>
#include <zlib.h>

namespace zrnrecording
{
namespace
{

// The first byte is no text and the line feed at the end shows a transfer in text mode.
constexpr std::array<unsigned char, 8> fileMagic = {0x89, 'Z', 'R', 'N', 'R', 'E', 'C', '\n'};
constexpr std::array<unsigned char, 8> frameMagic = {'Z', 'R', 'N', 'F', 'R', 'A', 'M', 'E'};
constexpr std::array<unsigned char, 8> tailMagic = {'Z', 'R', 'N', 'T', 'A', 'I', 'L', '\n'};

// Places of the fields; the magic stands at 0, the CRC of the header at its end.
constexpr int magicAt = 0;
constexpr int headerCrcAt = blockSize - 4;

constexpr int versionAt = 8;
constexpr int metadataBytesAt = 12;

constexpr int positionAt = 8;
constexpr int arrivalAt = 16;
constexpr int widthAt = 24;
constexpr int heightAt = 28;
constexpr int numberAt = 32;
constexpr int missingAt = 36;
constexpr int lettersAt = 40;
constexpr int payloadCrcAt = 44;

constexpr int indexOffsetAt = 8;
constexpr int frameCountAt = 16;
constexpr int indexCrcAt = 24;

constexpr qint32 maximumEdge = 65535; ///< USB cameras state their frame sizes in 16 bits

template <typename Number>
void put(Block& block, int at, Number number)
{
    qToLittleEndian(number, block.data() + at);
}

template <typename Number>
Number get(const Block& block, int at)
{
    return qFromLittleEndian<Number>(block.data() + at);
}

Block begin(const std::array<unsigned char, 8>& magic)
{
    Block block{};
    std::memcpy(block.data() + magicAt, magic.data(), magic.size());
    return block;
}

quint32 headerCrc(const Block& block)
{
    return crcOf(std::span(block).first(headerCrcAt));
}

Block& seal(Block& block)
{
    put<quint32>(block, headerCrcAt, headerCrc(block));
    return block;
}

bool isSealed(const Block& block, const std::array<unsigned char, 8>& magic)
{
    return std::memcmp(block.data() + magicAt, magic.data(), magic.size()) == 0 &&
           get<quint32>(block, headerCrcAt) == headerCrc(block);
}

bool isEdge(qint32 pixels)
{
    return pixels > 0 && pixels <= maximumEdge;
}

bool isLetter(char letter)
{
    return letter == 'A' || letter == 'B';
}

} // namespace

quint64 padded(quint64 bytes)
{
    return (bytes + blockSize - 1) / blockSize * blockSize;
}

quint64 FrameHeader::imageBytes() const
{
    return static_cast<quint64>(width) * static_cast<quint64>(height) + imageTrailerBytes;
}

Block encodeFileHeader(quint32 metadataBytes)
{
    Block block = begin(fileMagic);
    put(block, versionAt, formatVersion);
    put(block, metadataBytesAt, metadataBytes);
    return seal(block);
}

std::optional<quint32> decodeFileHeader(const Block& block)
{
    if (!isSealed(block, fileMagic) || get<quint32>(block, versionAt) != formatVersion) {
        return std::nullopt;
    }
    const auto metadataBytes = get<quint32>(block, metadataBytesAt);
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
    std::memcpy(block.data() + lettersAt, header.letters.data(), header.letters.size());
    put(block, payloadCrcAt, header.payloadCrc);
    return seal(block);
}

std::optional<FrameHeader> decodeFrameHeader(const Block& block)
{
    if (!isSealed(block, frameMagic)) {
        return std::nullopt;
    }
    FrameHeader header;
    header.position = get<quint64>(block, positionAt);
    header.arrivalNanoseconds = get<qint64>(block, arrivalAt);
    header.width = get<qint32>(block, widthAt);
    header.height = get<qint32>(block, heightAt);
    header.number = get<quint32>(block, numberAt);
    header.missing = get<quint32>(block, missingAt);
    std::memcpy(header.letters.data(), block.data() + lettersAt, header.letters.size());
    header.payloadCrc = get<quint32>(block, payloadCrcAt);
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
    return Tail{get<quint64>(block, indexOffsetAt), get<quint64>(block, frameCountAt),
                get<quint32>(block, indexCrcAt)};
}

quint32 payloadCrc(const Frame& frame)
{
    quint32 crc = 0;
    for (const Image& image : frame.images) {
        crc = crcOf({reinterpret_cast<const unsigned char*>(image.data.constData()),
                     static_cast<std::size_t>(image.data.size())},
                    crc);
    }
    return crc;
}

quint32 crcOf(std::span<const unsigned char> bytes, quint32 before)
{
    return static_cast<quint32>(::crc32_z(before, bytes.data(), bytes.size()));
}

} // namespace zrnrecording
