// Recordings of any content: the reader answers or refuses, and never reads beyond the file.

#include "recording/recording_reader.h"

#include <cstdlib>
#include <fuzzer/FuzzedDataProvider.h>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace
{

using namespace zrnrecording;

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
    void extend(quint64 bytes) const
    {
        const off_t end = lseek(m_file, 0, SEEK_END) + static_cast<off_t>(bytes);
        if (ftruncate(m_file, end) != 0) {
            std::abort();
        }
        lseek(m_file, 0, SEEK_END);
    }
    QString path() const { return QStringLiteral("/proc/self/fd/%1").arg(m_file); }

private:
    int m_file;
};

/// Parts whose checksums hold, with any numbers inside, and parts of anything.
void compose(FuzzedDataProvider& input, const MemoryFile& file)
{
    const auto metadataBytes = input.ConsumeBool() ? input.ConsumeIntegralInRange<quint32>(0, 128)
                                                   : input.ConsumeIntegral<quint32>();
    file.append(encodeFileHeader(metadataBytes));
    quint64 left = quint64{64} * 1024 * 1024; // for what has no content
    while (input.remaining_bytes() > 0) {
        switch (input.ConsumeIntegralInRange(0, 4)) {
        case 0: {
            FrameHeader header;
            header.position = input.ConsumeIntegral<std::uint8_t>();
            header.arrivalNanoseconds = input.ConsumeIntegral<qint64>();
            const bool isSmall = input.ConsumeBool();
            header.width =
                isSmall ? input.ConsumeIntegralInRange(1, 16) : input.ConsumeIntegral<qint32>();
            header.height =
                isSmall ? input.ConsumeIntegralInRange(1, 16) : input.ConsumeIntegral<qint32>();
            header.letters = {'A', input.ConsumeBool() ? 'B' : '\0'};
            header.payloadCrc = input.ConsumeIntegral<quint32>();
            file.append(encodeFrameHeader(header));
            break;
        }
        case 1:
            file.append(
                encodeTail({input.ConsumeIntegral<quint64>(), input.ConsumeIntegral<quint64>(),
                            input.ConsumeIntegral<quint32>()}));
            break;
        case 2: {
            const auto bytes = input.ConsumeIntegralInRange<quint64>(0, left);
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
        const RecordingReader reader(file.path());
        static_cast<void>(reader.durationNanoseconds());
        for (int position = 0; position < reader.frameCount(); ++position) {
            try {
                static_cast<void>(reader.frame(position));
            } catch (const RecordingError&) {
                continue;
            }
        }
    } catch (const RecordingError&) {
        return 0;
    }
    return 0;
}
