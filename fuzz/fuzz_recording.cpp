// Recordings of any content: the reader answers or refuses, and never reads beyond the file.

#include "client/crc32.h"
#include "client/error.h"
#include "client/little_endian.h"
#include "client/recording.h"
#include "client/recording_notes.h"
#include "client/recording_version1.h"
#include "client/xxh3.h"

#include <algorithm>
#include <cstdlib>
#include <fuzzer/FuzzedDataProvider.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace
{

using namespace zrn;
using namespace zrn::recording;

/// A file in memory, which ends with its scope.
class MemoryFile
{
public:
    MemoryFile()
        : m_file(memfd_create("recording", 0))
    {
    }
    ~MemoryFile() { close(m_file); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    void append(const void* data, std::size_t bytes) const
    {
        if (write(m_file, data, bytes) != static_cast<ssize_t>(bytes)) {
            std::abort();
        }
    }
    void append(std::span<const std::uint8_t> bytes) const { append(bytes.data(), bytes.size()); }
    /// Makes the file longer without a byte of content.
    void extend(std::uint64_t bytes) const
    {
        const off_t end = lseek(m_file, 0, SEEK_END) + static_cast<off_t>(bytes);
        if (ftruncate(m_file, end) != 0) {
            std::abort();
        }
        lseek(m_file, 0, SEEK_END);
    }
    std::string path() const { return "/proc/self/fd/" + std::to_string(m_file); }

private:
    int m_file;
};

/// A part of version 1 whose checksum holds.
Block sealed1(Block block, const version1::Magic& magic)
{
    std::ranges::copy(magic, block.begin());
    little_endian::put(block, version1::headerCrcAt,
                       crc32(std::span(block).first(version1::headerCrcAt)));
    return block;
}

FrameHeader anyFrameHeader(FuzzedDataProvider& input)
{
    FrameHeader header;
    header.position = input.ConsumeIntegral<std::uint8_t>();
    header.arrivalNanoseconds = input.ConsumeIntegral<std::int64_t>();
    const bool isSmall = input.ConsumeBool();
    header.width =
        isSmall ? input.ConsumeIntegralInRange(1U, 16U) : input.ConsumeIntegral<std::uint32_t>();
    header.height =
        isSmall ? input.ConsumeIntegralInRange(1U, 16U) : input.ConsumeIntegral<std::uint32_t>();
    header.letters = {'A', input.ConsumeBool() ? 'B' : '\0'};
    header.payloadCrc = input.ConsumeIntegral<std::uint32_t>();
    header.imageHashes = {header.payloadCrc, 0};
    return header;
}

Block encodedInVersion1(const FrameHeader& header)
{
    using little_endian::put;
    Block block{};
    put(block, version1::positionAt, header.position);
    put(block, version1::arrivalAt, header.arrivalNanoseconds);
    put(block, version1::widthAt, header.width);
    put(block, version1::heightAt, header.height);
    block[version1::lettersAt] = static_cast<std::uint8_t>(header.letters[0]);
    block[version1::lettersAt + 1] = static_cast<std::uint8_t>(header.letters[1]);
    put(block, version1::payloadCrcAt, header.payloadCrc);
    return sealed1(block, version1::frameMagic);
}

/// A frame's header with notes that are anything, or the header of another frame.
void appendFrameHeader(FuzzedDataProvider& input, const MemoryFile& file, int version)
{
    const FrameHeader header = anyFrameHeader(input);
    if (version == 1) {
        file.append(encodedInVersion1(header));
        return;
    }
    const auto notes = input.ConsumeBytes<std::uint8_t>(
        input.ConsumeIntegralInRange<std::size_t>(0, noteChunkBytes));
    FrameBlock block = encodeFrameHeader(header, {notes, input.ConsumeIntegral<std::uint16_t>()});
    if (input.ConsumeBool()) { // any of its fields is anything
        const auto at = input.ConsumeIntegralInRange<std::size_t>(8, 127);
        block.at(at) = input.ConsumeIntegral<std::uint8_t>();
        const std::size_t hashAt = block.size() - sizeof(std::uint64_t);
        little_endian::put(block, hashAt, xxh3(std::span(block).first(hashAt)));
    }
    file.append(block);
}

void appendTail(FuzzedDataProvider& input, const MemoryFile& file, int version)
{
    const auto number = [&input] {
        return input.ConsumeBool() ? input.ConsumeIntegralInRange<std::uint64_t>(0, 4096)
                                   : input.ConsumeIntegral<std::uint64_t>();
    };
    if (version == 1) {
        Block block{};
        little_endian::put(block, version1::indexOffsetAt, number());
        little_endian::put(block, version1::frameCountAt, number());
        little_endian::put(block, version1::indexCrcAt, input.ConsumeIntegral<std::uint32_t>());
        file.append(sealed1(block, version1::tailMagic));
        return;
    }
    const std::uint64_t hashOfNothing = xxh3({});
    file.append(encodeTail({number(), number(), hashOfNothing, number(), number(), hashOfNothing}));
}

/// Parts whose checksums hold, with any numbers inside, and parts of anything.
void compose(FuzzedDataProvider& input, const MemoryFile& file)
{
    const int version = input.ConsumeBool() ? 1 : 2;
    const auto metadataBytes = input.ConsumeBool()
                                   ? input.ConsumeIntegralInRange<std::uint32_t>(0, 128)
                                   : input.ConsumeIntegral<std::uint32_t>();
    if (version == 1) {
        Block block{};
        little_endian::put(block, version1::versionAt, std::uint32_t{1});
        little_endian::put(block, version1::metadataBytesAt, metadataBytes);
        file.append(sealed1(block, version1::fileMagic));
    } else {
        file.append(encodeFileHeader({version, metadataBytes, 0}));
    }
    std::uint64_t left = std::uint64_t{64} * 1024 * 1024; // for what has no content
    while (input.remaining_bytes() > 0) {
        switch (input.ConsumeIntegralInRange(0, 5)) {
        case 0:
            appendFrameHeader(input, file, version);
            break;
        case 1:
            appendTail(input, file, version);
            break;
        case 2: {
            const auto bytes = input.ConsumeIntegralInRange<std::uint64_t>(0, left);
            left -= bytes;
            file.extend(bytes);
            break;
        }
        case 3:
            file.extend(input.ConsumeIntegralInRange<std::uint64_t>(0, 16) * blockSize);
            break;
        default: {
            const auto bytes =
                input.ConsumeBytes<std::uint8_t>(input.ConsumeIntegralInRange<std::size_t>(0, 200));
            file.append(bytes.data(), bytes.size());
        }
        }
    }
}

void readAll(const Recording& reader)
{
    static_cast<void>(reader.duration());
    static_cast<void>(reader.notes());
    static_cast<void>(reader.stack());
    for (const auto kind : {WallClock::Kind::Realtime, WallClock::Kind::Tai}) {
        static_cast<void>(reader.wallTime({}, kind));
    }
    for (int position = 0; position < reader.frameCount(); ++position) {
        try {
            static_cast<void>(reader.sinceStart(position));
            const Frame frame = reader.frame(position);
            static_cast<void>(reader.wallTime(frame.arrival, WallClock::Kind::Realtime));
        } catch (const Error&) {
            continue;
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    const MemoryFile file;
    if (input.ConsumeBool()) {
        compose(input, file);
    } else {
        const auto bytes = input.ConsumeRemainingBytes<std::uint8_t>();
        file.append(bytes.data(), bytes.size());
    }
    try {
        readAll(Recording(file.path()));
    } catch (const Error&) {
        return 0;
    }
    return 0;
}
