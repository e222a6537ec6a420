#include "usb_guards/other_threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <unistd.h>

using namespace std::chrono_literals;
using usbguards::waitUntilOthersHaveMoved;

namespace
{

/// Keeps this thread where it is, without processor time and not asleep.
void stand(std::chrono::microseconds time)
{
    const auto length = static_cast<useconds_t>(time.count());
    if (vfork() == 0) {
        usleep(length);
        _exit(0);
    }
}

TEST(OtherThreads, ThoseThatSleepOrRunAreNotWaitedForLong)
{
    std::atomic<bool> end = false;
    std::thread running([&] {
        while (!end) {
        }
    });
    std::thread sleeping([&] { end.wait(false); });
    EXPECT_TRUE(waitUntilOthersHaveMoved(10s));
    end = true;
    end.notify_all();
    running.join();
    sleeping.join();
}

TEST(OtherThreads, OneThatStandsIsWaitedFor)
{
    std::atomic<bool> begins = false;
    std::atomic<bool> hasMoved = false;
    std::thread standing([&] {
        begins = true;
        stand(2s);
        hasMoved = true;
    });
    while (!begins) {
        std::this_thread::yield();
    }
    std::this_thread::sleep_for(100ms);
    EXPECT_FALSE(waitUntilOthersHaveMoved(50ms));
    EXPECT_TRUE(waitUntilOthersHaveMoved(20s));
    EXPECT_TRUE(hasMoved);
    standing.join();
}

} // namespace
