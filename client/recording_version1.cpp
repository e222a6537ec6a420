#include "client/recording_version1.h"

#include "client/crc32.h"
#include "client/little_endian.h"

#include <algorithm>

namespace zrn::recording::version1
{

using little_endian::get;

bool isSealed(std::span<const std::uint8_t> block, const Magic& magic)
{
    return std::equal(magic.begin(), magic.end(), block.begin()) &&
           get<std::uint32_t>(block, headerCrcAt) == crc32(block.first(headerCrcAt));
}

std::optional<FileHeader> decodeFileHeader(std::span<const std::uint8_t> block)
{
    if (!isSealed(block, fileMagic) || get<std::uint32_t>(block, versionAt) != 1) {
        return std::nullopt;
    }
    return FileHeader{1, get<std::uint32_t>(block, metadataBytesAt), 0};
}

std::optional<FrameHeader> decodeFrameHeader(std::span<const std::uint8_t> block)
{
    if (!isSealed(block, frameMagic)) {
        return std::nullopt;
    }
    FrameHeader header;
    header.position = get<std::uint64_t>(block, positionAt);
    header.arrivalNanoseconds = get<std::int64_t>(block, arrivalAt);
    header.times.firstPayload =
        FrameTimes::time_point(std::chrono::nanoseconds(header.arrivalNanoseconds));
    header.times.lastPayload = header.times.handOver = header.times.firstPayload;
    header.width = get<std::uint32_t>(block, widthAt);
    header.height = get<std::uint32_t>(block, heightAt);
    header.number = get<std::uint32_t>(block, numberAt);
    header.missing = get<std::uint32_t>(block, missingAt);
    for (std::size_t i = 0; i < header.letters.size(); ++i) {
        header.letters.at(i) = static_cast<char>(block[lettersAt + i]);
    }
    header.payloadCrc = get<std::uint32_t>(block, payloadCrcAt);
    return header;
}

std::optional<Tail> decodeTail(std::span<const std::uint8_t> block)
{
    if (!isSealed(block, tailMagic)) {
        return std::nullopt;
    }
    Tail tail;
    tail.indexOffset = get<std::uint64_t>(block, indexOffsetAt);
    tail.frameCount = get<std::uint64_t>(block, frameCountAt);
    tail.indexHash = get<std::uint32_t>(block, indexCrcAt);
    return tail;
}

} // namespace zrn::recording::version1
