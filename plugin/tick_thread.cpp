#include "tick_thread.h"

#include "atomic_field.h"
#include "driver_clock.h"

#include <QList>
#include <QScopedPointer>

#include <chrono>
#include <unistd.h>

namespace CustomThreads
{

TickTokThread::TickTokThread() = default;

TickTokThread::~TickTokThread()
{
    shared(m_running).store(false);
    shared(m_held).store(false);
    if (isRunning()) {
        const qint64 process = shared(m_process).load();
        if (process != 0 && process != getpid()) {
            abandonThread();
            return;
        }
        wait();
    }
    // Comes after the thread's last access, as tools see it that cannot look into QtCore.
    shared(m_running).load();
}

void TickTokThread::abandonThread()
{
    // QThread ends the process when it is destroyed while it believes that its thread runs. What it
    // believes goes to an object that is never destroyed, and this one gets the fresh state of
    // that.
    disconnect();
    setParent(nullptr);
    class Shell : public QThread
    {
    public:
        void takeStateOf(QScopedPointer<QObjectData>& state, QObject* owner)
        {
            QT_WARNING_PUSH;
            QT_WARNING_DISABLE_DEPRECATED; // Qt 6 prefers std::unique_ptr, and keeps this pointer
            d_ptr.swap(state);
            QT_WARNING_POP;
            state->q_ptr = owner;
            d_ptr->q_ptr = this;
        }
    };
    static auto& shells = *new QList<Shell*>;
    shells.append(new Shell);
    shells.last()->takeStateOf(d_ptr, this);
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
    shared(m_process).store(getpid());
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
