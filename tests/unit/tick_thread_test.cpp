// The periodic thread, by the order of its events.

#include "tick_thread.h"
#include "virtual_clock.h"
#include "watched_thread.h"

#include <QCoreApplication>
#include <QMetaMethod>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <semaphore>
#include <string>
#include <sys/wait.h>
#include <type_traits>
#include <unistd.h>

using CustomThreads::TickTokThread;
using namespace std::chrono_literals;

namespace
{

class TickProbe : public TickTokThread
{
public:
    using TickTokThread::m_held;
    using TickTokThread::m_period;
    using TickTokThread::m_running;
};

/// A thread that is held in each of its sleeps until the test wakes it.
class TickThread : public testing::Test
{
protected:
    TickThread()
    {
        clock.reset();
        clock.setHook([this](const VirtualClock::Sleep& sleep) {
            if (!m_isOver) {
                m_sleep = sleep;
                m_asleep.release();
                m_wakings.acquire();
            }
        });
        QObject::connect(
            &thread, &TickTokThread::tickTokTimeOut, &thread,
            [this] {
                m_emitter = QThread::currentThread();
                ++m_ticks;
            },
            Qt::DirectConnection);
    }
    ~TickThread() override
    {
        m_isOver = true;
        wake();
        m_thread.reset();
        clock.reset();
    }

    /// Waits until the thread has begun to sleep. @return for how long, or -1 ms where it does not.
    std::chrono::milliseconds nextSleep()
    {
        return m_asleep.try_acquire_for(20s) ? m_sleep.length : -1ms;
    }
    void wake() { m_wakings.release(); }
    /// The sleep that follows the present one.
    std::chrono::milliseconds sleepAfterThis()
    {
        wake();
        return nextSleep();
    }
    /// Destroys the thread while it sleeps.
    void destroyAsleep()
    {
        WatchedThread destroyer([this] { m_thread.reset(); });
        EXPECT_TRUE(destroyer.waitsForOthers());
        wake();
    }

    VirtualClock& clock = VirtualClock::instance();
    std::unique_ptr<TickProbe> m_thread = std::make_unique<TickProbe>();
    TickProbe& thread = *m_thread;
    std::atomic<int> m_ticks = 0;
    std::atomic<QThread*> m_emitter = nullptr;

private:
    std::atomic<bool> m_isOver = false;
    VirtualClock::Sleep m_sleep; ///< handed over by m_asleep
    // Not Qt's, into which tools that look for races cannot look.
    std::counting_semaphore<> m_asleep{0};
    std::counting_semaphore<> m_wakings{0};
};

} // namespace

TEST_F(TickThread, AForkedChildDoesNotWaitForItsParentsThread)
{
    thread.start();
    ASSERT_EQ(nextSleep(), 1000ms);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        alarm(10);
        m_thread.reset();
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
}

TEST_F(TickThread, StartsWithItsDefaults)
{
    static_assert(std::is_same_v<decltype(TickProbe::m_running), bool>);
    static_assert(std::is_same_v<decltype(TickProbe::m_held), bool>);
    static_assert(std::is_same_v<decltype(TickProbe::m_period), quint32>);
    EXPECT_TRUE(thread.m_running);
    EXPECT_FALSE(thread.m_held);
    EXPECT_EQ(thread.currentTickTokPeriod(), 1000U);
    EXPECT_EQ(thread.parent(), nullptr);
    EXPECT_FALSE(thread.isRunning());
    const auto address = [](const auto& field) { return reinterpret_cast<std::uintptr_t>(&field); };
    EXPECT_LT(address(thread.m_running), address(thread.m_held));
    EXPECT_LT(address(thread.m_held), address(thread.m_period));
}

TEST_F(TickThread, HasOneSignal)
{
    const QMetaObject* meta = thread.metaObject();
    EXPECT_STREQ(meta->className(), "CustomThreads::TickTokThread");
    EXPECT_EQ(meta->superClass(), &QThread::staticMetaObject);
    ASSERT_EQ(meta->methodCount() - meta->methodOffset(), 1);
    const QMetaMethod method = meta->method(meta->methodOffset());
    EXPECT_EQ(method.methodSignature(), "tickTokTimeOut()");
    EXPECT_EQ(method.methodType(), QMetaMethod::Signal);
    EXPECT_STREQ(method.typeName(), "void");
}

TEST_F(TickThread, KeepsItsPeriod)
{
    for (const unsigned int period : {0U, 1U, 5000U, 0xffffffffU}) {
        thread.setTickTokPeriod(period);
        EXPECT_EQ(thread.currentTickTokPeriod(), period);
    }
}

TEST_F(TickThread, HoldingAlwaysAnswersTrue)
{
    EXPECT_TRUE(thread.holdThread(true));
    EXPECT_TRUE(thread.m_held);
    EXPECT_TRUE(thread.holdThread(false));
    EXPECT_FALSE(thread.m_held);
}

TEST_F(TickThread, TheFirstTickComesAtOnceAndFromTheThreadItself)
{
    thread.setTickTokPeriod(300);
    thread.start();
    EXPECT_EQ(nextSleep(), 300ms);
    EXPECT_EQ(m_ticks, 1);
    EXPECT_EQ(m_emitter, &thread);
}

TEST_F(TickThread, ItsEndWaitsForTheEndOfItsSleep)
{
    thread.setTickTokPeriod(300);
    thread.start();
    EXPECT_EQ(nextSleep(), 300ms);
    destroyAsleep();
    EXPECT_EQ(m_ticks, 1);
    EXPECT_EQ(clock.sleeps().size(), 1U);
}

TEST_F(TickThread, TicksOnceInEachPeriod)
{
    thread.setTickTokPeriod(7);
    thread.start();
    EXPECT_EQ(nextSleep(), 7ms);
    const VirtualClock::Time begin = clock.now();
    for (int periods = 1; periods <= 10; ++periods) {
        EXPECT_EQ(sleepAfterThis(), 7ms);
        EXPECT_EQ(clock.now() - begin, periods * 7ms);
        EXPECT_EQ(m_ticks, 1 + periods);
    }
}

TEST_F(TickThread, APeriodOfZeroTicksWithoutPause)
{
    thread.setTickTokPeriod(0);
    thread.start();
    EXPECT_EQ(nextSleep(), 0ms);
    EXPECT_EQ(sleepAfterThis(), 0ms);
    EXPECT_EQ(m_ticks, 2);
}

TEST_F(TickThread, ANewPeriodAppliesFromTheNextSleep)
{
    thread.setTickTokPeriod(0);
    thread.start();
    EXPECT_EQ(nextSleep(), 0ms);
    thread.setTickTokPeriod(0xffffffff);
    EXPECT_EQ(sleepAfterThis(), 4294967295ms);
    thread.setTickTokPeriod(5);
    EXPECT_EQ(sleepAfterThis(), 5ms);
    EXPECT_EQ(m_ticks, 3);
}

TEST_F(TickThread, AHeldThreadDoesNotTick)
{
    thread.setTickTokPeriod(5);
    thread.holdThread(true);
    thread.start();
    EXPECT_EQ(nextSleep(), 10ms);
    EXPECT_EQ(sleepAfterThis(), 10ms);
    EXPECT_EQ(m_ticks, 0);
    thread.holdThread(false);
    EXPECT_EQ(sleepAfterThis(), 5ms);
    EXPECT_EQ(m_ticks, 1);
    thread.holdThread(true);
    EXPECT_EQ(sleepAfterThis(), 10ms);
    EXPECT_EQ(m_ticks, 1);
    EXPECT_TRUE(thread.isRunning());
    thread.holdThread(false);
    EXPECT_EQ(sleepAfterThis(), 5ms);
    EXPECT_EQ(m_ticks, 2);
}

TEST_F(TickThread, OneThatNeverStartedEndsAtOnce)
{
    thread.setTickTokPeriod(0xffffffff);
    m_thread.reset();
}

TEST_F(TickThread, AHeldThreadEnds)
{
    thread.holdThread(true);
    thread.start();
    EXPECT_EQ(nextSleep(), 10ms);
    destroyAsleep();
    EXPECT_EQ(m_ticks, 0);
    EXPECT_EQ(clock.sleeps().size(), 1U);
}

TEST_F(TickThread, ReceiversElsewhereAreQueued)
{
    int argumentCount = 1;
    std::string program = "tick_thread_test";
    std::array<char*, 2> arguments = {program.data(), nullptr};
    const QCoreApplication application(argumentCount, arguments.data());
    QObject receiver;
    std::atomic<QThread*> receivedIn = nullptr;
    QObject::connect(&thread, &TickTokThread::tickTokTimeOut, &receiver, [&receivedIn] {
        receivedIn = QThread::currentThread();
        QCoreApplication::quit();
    });
    thread.setTickTokPeriod(5);
    thread.start();
    QCoreApplication::exec();
    EXPECT_EQ(receivedIn, QThread::currentThread());
}
