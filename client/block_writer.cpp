#include "client/block_writer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace zrn
{
namespace
{

/// What direct writes begin and end at: no disk has larger blocks.
constexpr std::size_t alignment = 4096;

std::size_t aligned(std::size_t bytes)
{
    return (bytes + alignment - 1) / alignment * alignment;
}

std::error_code systemError()
{
    return {errno, std::generic_category()};
}

/// Whether the rest may be written in pieces that are not aligned.
bool mayPassInPieces(const std::error_code& error)
{
    return error == std::errc::invalid_argument || error == std::errc::no_space_on_device ||
           error == std::errc::file_too_large || error.value() == EDQUOT;
}

} // namespace

BlockWriter::Memory::Memory()
{
    constexpr std::size_t size = bufferBytes * bufferCount;
    void* const memory =
        ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        throw std::system_error(systemError());
    }
    ::madvise(memory, size, MADV_HUGEPAGE); // fewer pages for the system to hold meanwhile
    m_bytes = {static_cast<std::uint8_t*>(memory), size};
}

BlockWriter::Memory::~Memory()
{
    ::munmap(m_bytes.data(), m_bytes.size());
}

BlockWriter::BlockWriter(int file)
    : m_file(file)
{
    for (std::size_t i = 0; i < bufferCount; ++i) {
        m_buffers.at(i).bytes = m_memory.bytes().subspan(i * bufferBytes, bufferBytes);
    }
    leavePageCache(true);
    m_thread = std::thread([this] { run(); });
}

BlockWriter::~BlockWriter()
{
    {
        const std::lock_guard lock(m_mutex);
        m_isStopping = true;
        m_changed.notify_all();
    }
    m_thread.join();
}

void BlockWriter::append(std::span<const std::uint8_t> bytes)
{
    for (std::span<const std::uint8_t> left = bytes; !left.empty();) {
        Buffer& current = buffer(m_handedOver);
        const std::size_t fitting = std::min(left.size(), bufferBytes - current.used);
        std::memcpy(current.bytes.data() + current.used, left.data(), fitting);
        current.used += fitting;
        m_bytes += fitting;
        left = left.subspan(fitting);
        if (current.used == bufferBytes) {
            handOver();
        }
    }
}

/// Gives the current buffer to the thread, and waits for the next one.
void BlockWriter::handOver()
{
    const Buffer& full = buffer(m_handedOver);
    m_handedOverBytes = m_bytes;
    std::unique_lock lock(m_mutex);
    ++m_handedOver;
    m_changed.notify_all();
    m_changed.wait(lock, [this] { return m_handedOver - m_done < bufferCount; });
    if (m_error) {
        throw std::system_error(m_error);
    }
    Buffer& next = buffer(m_handedOver);
    // The last block is written again when it is full.
    const std::size_t begun = full.used % alignment;
    next.offset = full.offset + full.used - begun;
    next.used = begun;
    std::memcpy(next.bytes.data(), full.bytes.data() + full.used - begun, begun);
}

void BlockWriter::flush()
{
    if (m_handedOverBytes < m_bytes) {
        handOver();
    }
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_done == m_handedOver; });
    if (m_error) {
        throw std::system_error(m_error);
    }
}

void BlockWriter::finish()
{
    flush();
    if (::ftruncate(m_file, static_cast<off_t>(m_bytes)) != 0) {
        throw std::system_error(systemError());
    }
}

std::uint64_t BlockWriter::writtenBytes() const
{
    const std::lock_guard lock(m_mutex);
    return m_writtenBytes;
}

void BlockWriter::run()
{
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_isStopping || m_done < m_handedOver; });
        if (m_done == m_handedOver) {
            return;
        }
        if (!m_error) {
            const Buffer& next = buffer(m_done);
            lock.unlock();
            const std::error_code error = write(next);
            lock.lock();
            m_error = error;
        }
        ++m_done;
        m_changed.notify_all();
    }
}

/// Also notes how far it came.
std::error_code BlockWriter::write(const Buffer& buffer)
{
    std::error_code error;
    std::size_t written = 0;
    if (m_isDirect) {
        std::ranges::fill(buffer.bytes.subspan(buffer.used, aligned(buffer.used) - buffer.used), 0);
    }
    while (!error && written < buffer.used) {
        const std::size_t end = m_isDirect ? aligned(buffer.used) : buffer.used;
        const ssize_t count = ::pwrite(m_file, buffer.bytes.data() + written, end - written,
                                       static_cast<off_t>(buffer.offset + written));
        if (count > 0) {
            written += static_cast<std::size_t>(count);
            continue;
        }
        error = count < 0 ? systemError() : std::make_error_code(std::errc::no_space_on_device);
        if (error == std::errc::interrupted) {
            error.clear();
        } else if (m_isDirect && mayPassInPieces(error)) {
            leavePageCache(false);
            error.clear();
        }
    }
    const std::lock_guard lock(m_mutex);
    m_writtenBytes = std::max(m_writtenBytes, buffer.offset + std::min(written, buffer.used));
    return error;
}

void BlockWriter::leavePageCache(bool leave)
{
    const int flags = ::fcntl(m_file, F_GETFL);
    const bool isSet =
        flags >= 0 && ::fcntl(m_file, F_SETFL, leave ? flags | O_DIRECT : flags & ~O_DIRECT) == 0;
    m_isDirect = leave && isSet;
}

} // namespace zrn
