#pragma once

#include <QThread>

namespace CustomThreads
{

/// A thread that emits a signal once per period until it is destroyed.
///
/// The first tick comes at once when the thread starts. Destroying it while it runs waits for the
/// end of its current sleep, up to one period. In a child that was forked while it ran there is no
/// thread to wait for.
///
/// Thread safety: any thread may call any operation but the destructor. The signal is emitted by
/// the thread itself, so receivers in other threads get it through their event loops.
class Q_DECL_EXPORT TickTokThread : public QThread
{
    Q_OBJECT

public:
    /// A thread without parent that ticks every 1000 ms. It is not started.
    TickTokThread();
    ~TickTokThread() override;

    /// @param period milliseconds between ticks, from the next sleep on; 0 ticks without pause.
    void setTickTokPeriod(unsigned int period);
    unsigned int currentTickTokPeriod();

    /// Holds or releases the ticks; a release takes effect within 10 ms. @return true.
    bool holdThread(bool hold);

Q_SIGNALS:
    void tickTokTimeOut();

protected:
    void run() override;

    bool m_running = true;
    bool m_held = false;
    quint32 m_period = 1000; ///< milliseconds

private:
    /// Gives up a thread that only the parent process has.
    void abandonThread();

    qint64 m_process = 0; ///< in which the thread was started last
};

} // namespace CustomThreads
