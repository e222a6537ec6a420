#pragma once

#include <array>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <span>
#include <system_error>
#include <thread>

namespace zrn
{

/// Appends to a new file in few large writes at aligned places, past the page cache where the file
/// system lets it. A thread writes while the next bytes are gathered.
///
/// Up to finish() the file may end with zeros behind what was written.
/// Thread safety: thread-bound but for writtenBytes().
class BlockWriter
{
public:
    static constexpr std::size_t bufferBytes = std::size_t{4} * 1024 * 1024;
    static constexpr std::size_t bufferCount = 3;

    /// @param file open for writing and empty, which remains the caller's
    /// @throws std::system_error when there is no memory or thread for it
    explicit BlockWriter(int file);
    /// Does not write what was not flushed.
    ~BlockWriter();
    BlockWriter(const BlockWriter&) = delete;
    BlockWriter& operator=(const BlockWriter&) = delete;

    /// Waits while all buffers are being written. @throws std::system_error when writing has failed
    void append(std::span<const std::uint8_t> bytes);
    /// Waits until all that was appended is written. @throws std::system_error
    void flush();
    /// The same, and lets the file end there. @throws std::system_error
    void finish();

    [[nodiscard]] std::uint64_t bytes() const { return m_bytes; } ///< appended
    /// How much of it, from the beginning, the system has.
    [[nodiscard]] std::uint64_t writtenBytes() const;

private:
    /// Memory that begins at a page.
    class Memory
    {
    public:
        Memory();
        ~Memory();
        Memory(const Memory&) = delete;
        Memory& operator=(const Memory&) = delete;

        [[nodiscard]] std::span<std::uint8_t> bytes() const { return m_bytes; }

    private:
        std::span<std::uint8_t> m_bytes;
    };
    struct Buffer {
        std::span<std::uint8_t> bytes;
        std::uint64_t offset = 0; ///< in the file
        std::size_t used = 0;
    };

    Buffer& buffer(std::uint64_t number) { return m_buffers.at(number % bufferCount); }
    void handOver();
    void run();
    std::error_code write(const Buffer& buffer);
    void leavePageCache(bool leave);

    const int m_file;
    const Memory m_memory;
    bool m_isDirect = false; // used by m_thread only
    std::uint64_t m_bytes = 0;
    std::uint64_t m_handedOverBytes = 0;       // of these
    std::array<Buffer, bufferCount> m_buffers; // each of the thread whose turn it is

    mutable std::mutex m_mutex; // guards everything below
    std::condition_variable m_changed;
    std::uint64_t m_handedOver = 0; // buffers
    std::uint64_t m_done = 0;       // buffers that were written, or failed to be
    std::uint64_t m_writtenBytes = 0;
    std::error_code m_error;
    bool m_isStopping = false;

    std::thread m_thread;
};

} // namespace zrn
