#pragma once

#include "client/frame.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zrn
{

/// Whether the size of a frame and the bytes of its images agree, so that it can be recorded.
bool isRecordable(const Frame& frame);

/// Writes one recording, frame after frame.
///
/// Until close() the file lacks its index, which a reader then makes up for.
/// Thread safety: thread-bound.
class RecordingFile
{
public:
    /// Creates the file, which must not exist. @param metadata an object as JSON text
    /// @throws Error
    RecordingFile(const std::string& path, std::string_view metadata);
    ~RecordingFile();
    RecordingFile(const RecordingFile&) = delete;
    RecordingFile& operator=(const RecordingFile&) = delete;

    /// Appends a recordable frame. After an error the frames before it can still be read.
    /// @throws Error
    void append(const Frame& frame);

    /// Writes index and tail, and waits until the file is on the disk. @throws Error
    void close();

    [[nodiscard]] const std::string& path() const { return m_path; }
    [[nodiscard]] std::uint64_t frameCount() const { return m_offsets.size(); }
    [[nodiscard]] std::uint64_t bytes() const { return m_bytes; }

private:
    void write(std::span<const std::uint8_t> bytes);
    void pad();
    [[noreturn]] void refuse(const std::string& why) const;

    const std::string m_path;
    int m_file = -1;
    std::uint64_t m_bytes = 0;
    std::chrono::steady_clock::time_point m_firstArrival;
    std::vector<std::uint64_t> m_offsets;
};

} // namespace zrn
