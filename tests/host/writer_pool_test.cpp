#include "common/writer_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>

using zrnhost::WriterPool;
using namespace std::chrono_literals;

namespace
{

constexpr auto patience = 60s;

} // namespace

TEST(WriterPoolTest, RunsEveryJob)
{
    std::atomic<int> done = 0;
    const auto job = [&done] {
        ++done;
        return QString();
    };
    {
        WriterPool pool;
        for (int i = 0; i < 100; ++i) {
            EXPECT_TRUE(pool.add(1, job));
        }
        EXPECT_TRUE(pool.waitForAll(patience));
        EXPECT_EQ(done, 100);
        EXPECT_EQ(pool.left(), 0U);
        pool.add(1, job);
    }
    EXPECT_EQ(done, 101) << "the last ones are waited for";
}

TEST(WriterPoolTest, WhoAddsWaitsWhileTooMuchWaits)
{
    WriterPool pool(10);
    std::promise<void> goOn;
    const auto job = [mayGoOn = goOn.get_future().share()] {
        mayGoOn.wait();
        return QString();
    };
    EXPECT_TRUE(pool.add(50, job)) << "more than all is taken when nothing waits";
    std::future<bool> second = std::async(std::launch::async, [&] { return pool.add(1, job); });
    EXPECT_EQ(second.wait_for(50ms), std::future_status::timeout);
    EXPECT_FALSE(pool.waitForAll(1ms));
    goOn.set_value();
    EXPECT_TRUE(second.get());
    EXPECT_TRUE(pool.waitForAll(patience));
}

TEST(WriterPoolTest, TakesNothingAfterAFailure)
{
    WriterPool pool;
    pool.add(1, [] { return QStringLiteral("the disk is full"); });
    EXPECT_TRUE(pool.waitForAll(patience));
    EXPECT_EQ(pool.failure(), QStringLiteral("the disk is full"));
    EXPECT_FALSE(pool.add(1, [] { return QString(); }));
}
