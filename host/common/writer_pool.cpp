#include "common/writer_pool.h"

#include <algorithm>
#include <sys/resource.h>
#include <unistd.h>

namespace zrnhost
{
namespace
{

/// Frames that arrive come before frames that are being written.
constexpr int givesWay = 10;

} // namespace

WriterPool::WriterPool(std::uint64_t mostBytes)
    : m_mostBytes(mostBytes)
{
    const unsigned cores = std::max(1U, std::thread::hardware_concurrency());
    for (unsigned i = 0; i < cores; ++i) {
        m_threads.emplace_back([this] {
            ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), givesWay);
            work();
        });
    }
}

WriterPool::~WriterPool()
{
    {
        const std::lock_guard lock(m_mutex);
        m_isEnding = true;
    }
    m_changed.notify_all();
    for (std::thread& thread : m_threads) {
        thread.join();
    }
}

bool WriterPool::add(std::uint64_t bytes, std::function<QString()> job)
{
    std::unique_lock lock(m_mutex);
    // A job that holds more than all may must still get through.
    m_changed.wait(lock, [this, bytes] {
        return !m_failure.isEmpty() || m_bytes == 0 || m_bytes + bytes <= m_mostBytes;
    });
    if (!m_failure.isEmpty()) {
        return false;
    }
    m_bytes += bytes;
    m_jobs.push_back({bytes, std::move(job)});
    m_changed.notify_all();
    return true;
}

bool WriterPool::waitForAll(std::chrono::milliseconds longest)
{
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, longest, [this] { return m_bytes == 0; });
}

std::size_t WriterPool::left() const
{
    const std::lock_guard lock(m_mutex);
    return m_jobs.size() + m_running;
}

QString WriterPool::failure() const
{
    const std::lock_guard lock(m_mutex);
    return m_failure;
}

void WriterPool::work()
{
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_isEnding || !m_jobs.empty(); });
        if (m_jobs.empty()) {
            return;
        }
        Job job = std::move(m_jobs.front());
        m_jobs.pop_front();
        ++m_running;
        QString failure;
        if (m_failure.isEmpty()) {
            lock.unlock();
            failure = job.run();
            job.run = {}; // with what it holds
            lock.lock();
        }
        --m_running;
        m_bytes -= job.bytes;
        m_failure = m_failure.isEmpty() ? failure : m_failure;
        m_changed.notify_all();
    }
}

} // namespace zrnhost
