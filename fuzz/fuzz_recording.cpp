// Recordings of any content: the reader answers or refuses, and never reads beyond the file.

#include "client/error.h"
#include "client/recording.h"

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
    void append(const Block& block) const { append(block.data(), block.size()); }
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

/// Parts whose checksums hold, with any numbers inside, and parts of anything.
void compose(FuzzedDataProvider& input, const MemoryFile& file)
{
    const auto metadataBytes = input.ConsumeBool()
                                   ? input.ConsumeIntegralInRange<std::uint32_t>(0, 128)
                                   : input.ConsumeIntegral<std::uint32_t>();
    file.append(encodeFileHeader(metadataBytes));
    std::uint64_t left = std::uint64_t{64} * 1024 * 1024; // for what has no content
    while (input.remaining_bytes() > 0) {
        switch (input.ConsumeIntegralInRange(0, 4)) {
        case 0: {
            FrameHeader header;
            header.position = input.ConsumeIntegral<std::uint8_t>();
            header.arrivalNanoseconds = input.ConsumeIntegral<std::int64_t>();
            const bool isSmall = input.ConsumeBool();
            header.width = isSmall ? input.ConsumeIntegralInRange(1U, 16U)
                                   : input.ConsumeIntegral<std::uint32_t>();
            header.height = isSmall ? input.ConsumeIntegralInRange(1U, 16U)
                                    : input.ConsumeIntegral<std::uint32_t>();
            header.letters = {'A', input.ConsumeBool() ? 'B' : '\0'};
            header.payloadCrc = input.ConsumeIntegral<std::uint32_t>();
            file.append(encodeFrameHeader(header));
            break;
        }
        case 1:
            file.append(encodeTail({input.ConsumeIntegral<std::uint64_t>(),
                                    input.ConsumeIntegral<std::uint64_t>(),
                                    input.ConsumeIntegral<std::uint32_t>()}));
            break;
        case 2: {
            const auto bytes = input.ConsumeIntegralInRange<std::uint64_t>(0, left);
            left -= bytes;
            file.extend(bytes);
            break;
        }
        default: {
            const auto bytes =
                input.ConsumeBytes<std::uint8_t>(input.ConsumeIntegralInRange<std::size_t>(0, 200));
            file.append(bytes.data(), bytes.size());
        }
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
        const Recording reader(file.path());
        static_cast<void>(reader.duration());
        for (int position = 0; position < reader.frameCount(); ++position) {
            try {
                static_cast<void>(reader.frame(position));
            } catch (const Error&) {
                continue;
            }
        }
    } catch (const Error&) {
        return 0;
    }
    return 0;
}
