#pragma once

#include <QString>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace zrnhost
{

/// Runs jobs that write files, on a thread for each core, which give way to all others. The jobs
/// that wait are bounded by the memory that they hold.
///
/// Thread safety: thread-safe.
class WriterPool
{
public:
    /// Memory of jobs that wait; as much as a recording may queue.
    static constexpr std::uint64_t usualBytes = std::uint64_t{256} << 20;

    explicit WriterPool(std::uint64_t mostBytes = usualBytes);
    /// Waits for all jobs.
    ~WriterPool();
    WriterPool(const WriterPool&) = delete;
    WriterPool& operator=(const WriterPool&) = delete;

    /// Takes a job; waits while those before it hold too much memory. @param bytes that it holds
    /// @param job answers empty, or why it failed; none is begun after a failure
    /// @return false when one has failed, and it was not taken
    bool add(std::uint64_t bytes, std::function<QString()> job);

    /// Waits until nothing is left to do. @return whether that was in time
    bool waitForAll(std::chrono::milliseconds longest);
    /// Jobs that wait or run.
    [[nodiscard]] std::size_t left() const;
    /// What the first job that failed said; empty if none did.
    [[nodiscard]] QString failure() const;

private:
    struct Job {
        std::uint64_t bytes;
        std::function<QString()> run;
    };

    void work();

    const std::uint64_t m_mostBytes;
    mutable std::mutex m_mutex; // guards what follows
    std::condition_variable m_changed;
    std::deque<Job> m_jobs;
    std::uint64_t m_bytes = 0; ///< of those that wait or run
    std::size_t m_running = 0;
    bool m_isEnding = false;
    QString m_failure;
    std::vector<std::thread> m_threads;
};

} // namespace zrnhost
