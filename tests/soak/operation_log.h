#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <iosfwd>
#include <map>
#include <mutex>
#include <string>
#include <thread>

namespace soak
{

/// How long operations take, by name. One that does not return within a minute ends the process
/// with its name. Thread-safe.
class OperationLog
{
public:
    OperationLog();
    ~OperationLog();

    /// Runs an operation and takes its time. @return what it returns
    template <typename Operation>
    auto time(const char* name, const Operation& operation)
    {
        const Running running(*this, name);
        return operation();
    }

    /// The operations, slowest first: name, count, mean and longest time.
    void print(std::ostream& stream) const;

private:
    using Clock = std::chrono::steady_clock;

    struct Times {
        std::uint64_t count = 0;
        Clock::duration sum{};
        Clock::duration longest{};
    };

    /// An operation from its begin to its end.
    class Running
    {
    public:
        Running(OperationLog& log, const char* name);
        ~Running();
        Running(const Running&) = delete;
        Running& operator=(const Running&) = delete;

    private:
        OperationLog& m_log;
        const char* m_name;
        Clock::time_point m_begin = Clock::now();
        std::multimap<Clock::time_point, const char*>::iterator m_entry;
    };

    void watch();

    mutable std::mutex m_mutex;
    std::map<std::string, Times> m_times;
    std::multimap<Clock::time_point, const char*> m_running; ///< by begin
    std::condition_variable m_changed;
    bool m_ends = false;
    std::thread m_watchdog;
};

} // namespace soak
