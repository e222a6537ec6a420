#include "tick_thread.h"

#include "atomic_field.h"
#include "driver_clock.h"

#include <chrono>

namespace CustomThreads
{

TickTokThread::TickTokThread() = default;

TickTokThread::~TickTokThread()
{
    shared(m_running).store(false);
    shared(m_held).store(false);
    if (isRunning()) {
        wait();
    }
    // Comes after the thread's last access, as tools see it that cannot look into QtCore.
    shared(m_running).load();
}

void TickTokThread::setTickTokPeriod(unsigned int period)
{
    shared(m_period).store(period);
}

unsigned int TickTokThread::currentTickTokPeriod()
{
    return shared(m_period).load();
}

bool TickTokThread::holdThread(bool hold)
{
    shared(m_held).store(hold);
    return true;
}

void TickTokThread::run()
{
    using std::chrono::milliseconds;
    constexpr milliseconds heldPoll(10);
    while (shared(m_running).load()) {
        if (shared(m_held).load()) {
            sleepFor(heldPoll);
            continue;
        }
        Q_EMIT tickTokTimeOut();
        sleepFor(milliseconds(shared(m_period).load()));
    }
    shared(m_running).store(false);
}

} // namespace CustomThreads
