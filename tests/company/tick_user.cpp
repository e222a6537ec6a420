// A host that links the plugin file for its tick thread, and loads it as a plugin as well.

#include "tick_thread.h"

#include <gtest/gtest.h>

#include <atomic>

namespace
{

TEST(LinkedPlugin, Ticks)
{
    CustomThreads::TickTokThread thread;
    std::atomic<bool> hasTicked = false;
    QObject::connect(
        &thread, &CustomThreads::TickTokThread::tickTokTimeOut, &thread, [&] { hasTicked = true; },
        Qt::DirectConnection);
    thread.setTickTokPeriod(1);
    thread.start();
    while (!hasTicked) {
        QThread::yieldCurrentThread();
    }
}

} // namespace
