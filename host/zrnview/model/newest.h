#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <utility>

namespace zrnview
{

/// Hands over the newest value and forgets the older ones, so that a slow taker never holds up the
/// giver. Thread safety: thread-safe.
template <typename Value>
class Newest
{
public:
    void put(Value value)
    {
        {
            const std::lock_guard lock(m_mutex);
            m_value = std::move(value);
        }
        m_changed.notify_one();
    }

    /// The newest value, if there is one that has not been taken.
    std::optional<Value> take()
    {
        const std::lock_guard lock(m_mutex);
        return std::exchange(m_value, std::nullopt);
    }

    /// Waits for a value. @return nothing once close() was called.
    std::optional<Value> waitAndTake()
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_closed || m_value; });
        return m_closed ? std::nullopt : std::exchange(m_value, std::nullopt);
    }

    /// Ends every wait, now and later.
    void close()
    {
        {
            const std::lock_guard lock(m_mutex);
            m_closed = true;
        }
        m_changed.notify_all();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::optional<Value> m_value;
    bool m_closed = false;
};

} // namespace zrnview
