#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

/// The driver's clock in tests. It stands still until a thread of the driver sleeps or a test
/// advances it; a sleep ends at once, and has then taken exactly its length.
///
/// Thread safety: any thread may call any operation. Threads sleep one after the other.
class VirtualClock
{
public:
    using Time = std::chrono::steady_clock::time_point;
    using Milliseconds = std::chrono::milliseconds;

    struct Sleep {
        std::thread::id sleeper;
        Milliseconds length;

        friend bool operator==(const Sleep&, const Sleep&) = default;
    };

    /// The one clock of the process.
    static VirtualClock& instance();

    /// Goes back to noon, without sleeps and hook.
    void reset();

    [[nodiscard]] Time now() const;
    void advance(Milliseconds length);

    /// The sleeps that have ended, in order.
    [[nodiscard]] std::vector<Sleep> sleeps() const;
    /// Runs @p hook in the sleeping thread at the beginning of each sleep, without any lock of the
    /// clock held. While it runs, the thread sleeps.
    void setHook(std::function<void(const Sleep&)> hook);

    // For the driver.
    void sleep(Milliseconds length);

    VirtualClock(const VirtualClock&) = delete;
    VirtualClock& operator=(const VirtualClock&) = delete;

private:
    static constexpr Time noon{std::chrono::hours(12)};

    VirtualClock() = default;

    mutable std::mutex m_mutex; ///< guards all below
    Time m_now = noon;
    std::vector<Sleep> m_sleeps;
    std::function<void(const Sleep&)> m_hook;
};
