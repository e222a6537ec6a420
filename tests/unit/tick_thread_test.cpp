// The periodic thread, by the order of its events.

#include "tick_thread.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QMetaMethod>
#include <QSemaphore>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <memory>
#include <string>
#include <type_traits>

using CustomThreads::TickTokThread;

namespace
{

class TickProbe : public TickTokThread
{
public:
    using TickTokThread::m_held;
    using TickTokThread::m_period;
    using TickTokThread::m_running;
};

/// Counts ticks in the thread that emits them.
class TickThread : public testing::Test
{
protected:
    /// A tick that never comes fails a test, but does not hang it.
    static constexpr int patienceMs = 20000;

    void countTicks()
    {
        QObject::connect(
            &thread, &TickTokThread::tickTokTimeOut, &thread,
            [this] {
                m_emitter = QThread::currentThread();
                m_ticks.release();
            },
            Qt::DirectConnection);
    }
    bool waitForTicks(int count) { return m_ticks.tryAcquire(count, patienceMs); }

    std::unique_ptr<TickProbe> m_thread = std::make_unique<TickProbe>();
    TickProbe& thread = *m_thread;
    QSemaphore m_ticks;
    std::atomic<QThread*> m_emitter = nullptr;
};

} // namespace

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
    // After it the thread sleeps, and its end waits for that.
    thread.setTickTokPeriod(300);
    countTicks();
    QElapsedTimer sinceStart;
    sinceStart.start();
    thread.start();
    ASSERT_TRUE(waitForTicks(1));
    EXPECT_EQ(m_emitter, &thread);
    m_thread.reset();
    EXPECT_GE(sinceStart.elapsed(), 299);
}

TEST_F(TickThread, TicksAgainAndAgain)
{
    thread.setTickTokPeriod(1);
    countTicks();
    QElapsedTimer sinceStart;
    sinceStart.start();
    thread.start();
    ASSERT_TRUE(waitForTicks(11));
    EXPECT_GE(sinceStart.elapsed(), 10);
}

TEST_F(TickThread, APeriodOfZeroTicksWithoutPause)
{
    thread.setTickTokPeriod(0);
    countTicks();
    thread.start();
    EXPECT_TRUE(waitForTicks(1000));
}

TEST_F(TickThread, ANewPeriodAppliesFromTheNextSleep)
{
    thread.setTickTokPeriod(0);
    countTicks();
    thread.start();
    ASSERT_TRUE(waitForTicks(10));
    thread.setTickTokPeriod(300);
    // The tick that was under way, then one whose sleep is the new one.
    while (m_ticks.tryAcquire(1, 100)) {
    }
    thread.setTickTokPeriod(0);
    EXPECT_TRUE(waitForTicks(1000));
}

TEST_F(TickThread, AHeldThreadDoesNotTick)
{
    thread.setTickTokPeriod(0);
    thread.holdThread(true);
    countTicks();
    thread.start();
    QThread::msleep(50);
    EXPECT_EQ(m_ticks.available(), 0);
    thread.holdThread(false);
    ASSERT_TRUE(waitForTicks(100));

    thread.holdThread(true);
    // Once it has noticed, it polls every 10 ms and stays silent.
    while (m_ticks.tryAcquire(1, 100)) {
    }
    EXPECT_TRUE(thread.isRunning());
    EXPECT_EQ(m_ticks.available(), 0);
    thread.holdThread(false);
    EXPECT_TRUE(waitForTicks(100));
}

TEST_F(TickThread, OneThatNeverStartedEndsAtOnce)
{
    thread.setTickTokPeriod(0xffffffff);
    m_thread.reset();
}

TEST_F(TickThread, AHeldThreadEnds)
{
    thread.holdThread(true);
    countTicks();
    thread.start();
    QThread::msleep(30);
    thread.setTickTokPeriod(50);
    m_thread.reset();
    // One at most, where the end fell between the two flags.
    EXPECT_LE(m_ticks.available(), 1);
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
