#pragma once

#include <atomic>
#include <cstdint>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

/// How far a recording is, in a file that outlives the process that tells.
class RecordingAccount
{
public:
    explicit RecordingAccount(const char* path)
    {
        const int file = ::open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (file >= 0 && ::ftruncate(file, sizeof(Counts)) == 0) {
            void* const memory =
                ::mmap(nullptr, sizeof(Counts), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
            m_counts = memory == MAP_FAILED ? nullptr : static_cast<Counts*>(memory);
        }
        ::close(file);
    }
    ~RecordingAccount()
    {
        if (m_counts != nullptr) {
            ::munmap(m_counts, sizeof(Counts));
        }
    }
    RecordingAccount(const RecordingAccount&) = delete;
    RecordingAccount& operator=(const RecordingAccount&) = delete;

    [[nodiscard]] bool isOpen() const { return m_counts != nullptr; }
    [[nodiscard]] std::atomic_ref<std::uint64_t> added() const
    {
        return std::atomic_ref(m_counts->added);
    }
    [[nodiscard]] std::atomic_ref<std::uint64_t> written() const
    {
        return std::atomic_ref(m_counts->written);
    }

private:
    struct Counts {
        std::uint64_t added;   ///< frames that add() was called with
        std::uint64_t written; ///< frames that the recorder said were written
    };

    Counts* m_counts = nullptr;
};
