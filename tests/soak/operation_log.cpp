#include "operation_log.h"

#include <algorithm>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <vector>

namespace soak
{

OperationLog::OperationLog()
    : m_watchdog([this] { watch(); })
{
}

OperationLog::~OperationLog()
{
    {
        const std::lock_guard locker(m_mutex);
        m_ends = true;
    }
    m_changed.notify_all();
    m_watchdog.join();
}

OperationLog::Running::Running(OperationLog& log, const char* name)
    : m_log(log)
    , m_name(name)
{
    const std::lock_guard locker(m_log.m_mutex);
    m_entry = m_log.m_running.emplace(m_begin, name);
}

OperationLog::Running::~Running()
{
    const std::lock_guard locker(m_log.m_mutex);
    m_log.m_running.erase(m_entry);
    Times& times = m_log.m_times[m_name];
    const Clock::duration taken = Clock::now() - m_begin;
    ++times.count;
    times.sum += taken;
    times.longest = std::max(times.longest, taken);
}

void OperationLog::watch()
{
    constexpr std::chrono::seconds patience(60);
    std::unique_lock locker(m_mutex);
    while (!m_changed.wait_for(locker, std::chrono::seconds(1), [this] { return m_ends; })) {
        if (!m_running.empty() && Clock::now() - m_running.begin()->first > patience) {
            std::cerr << "soak: " << m_running.begin()->second << " does not return" << std::endl;
            std::_Exit(EXIT_FAILURE);
        }
    }
}

void OperationLog::print(std::ostream& stream) const
{
    const std::lock_guard locker(m_mutex);
    std::vector<std::pair<std::string, Times>> rows(m_times.begin(), m_times.end());
    std::ranges::sort(rows, std::ranges::greater(),
                      [](const auto& row) { return row.second.longest; });
    const auto milliseconds = [](Clock::duration duration) {
        return std::chrono::duration<double, std::milli>(duration).count();
    };
    for (const auto& [name, times] : rows) {
        stream << "  " << std::left << std::setw(24) << name << std::right << std::setw(10)
               << times.count << " times" << std::fixed << std::setprecision(1) << std::setw(10)
               << milliseconds(times.sum) / static_cast<double>(times.count) << " ms mean"
               << std::setw(10) << milliseconds(times.longest) << " ms longest\n";
    }
}

} // namespace soak
