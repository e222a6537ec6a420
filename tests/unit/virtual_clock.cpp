#include "virtual_clock.h"

#include "driver_clock.h"

#include <utility>

VirtualClock& VirtualClock::instance()
{
    // Never destroyed: the driver may tell the time while the process exits.
    static auto& clock = *new VirtualClock;
    return clock;
}

void VirtualClock::reset()
{
    const std::lock_guard lock(m_mutex);
    m_now = noon;
    m_sleeps.clear();
    m_hook = {};
}

VirtualClock::Time VirtualClock::now() const
{
    const std::lock_guard lock(m_mutex);
    return m_now;
}

void VirtualClock::advance(Milliseconds length)
{
    const std::lock_guard lock(m_mutex);
    m_now += length;
}

std::vector<VirtualClock::Sleep> VirtualClock::sleeps() const
{
    const std::lock_guard lock(m_mutex);
    return m_sleeps;
}

void VirtualClock::setHook(std::function<void(const Sleep&)> hook)
{
    const std::lock_guard lock(m_mutex);
    m_hook = std::move(hook);
}

void VirtualClock::sleep(Milliseconds length)
{
    const Sleep sleep{std::this_thread::get_id(), length};
    std::function<void(const Sleep&)> hook;
    {
        const std::lock_guard lock(m_mutex);
        hook = m_hook;
    }
    if (hook) {
        hook(sleep);
    }
    {
        const std::lock_guard lock(m_mutex);
        m_now += length;
        m_sleeps.push_back(sleep);
    }
    // Whoever sleeps lets others run.
    std::this_thread::yield();
}

void sleepFor(std::chrono::milliseconds length)
{
    VirtualClock::instance().sleep(length);
}

std::chrono::steady_clock::time_point steadyTime()
{
    return VirtualClock::instance().now();
}
