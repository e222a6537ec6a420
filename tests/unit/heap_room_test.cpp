// Room for images that several threads make at once, as threads do that begin to grab together.

#include "heap_retention.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <thread>
#include <vector>

TEST(HeapRoom, IsMadeByManyThreadsAtOnce)
{
    constexpr std::size_t blocks = 20;
    constexpr std::size_t steps = 50;
    HeapRoom room;
    std::atomic<bool> begins = false;
    std::vector<std::thread> threads;
    for (std::size_t i = 1; i <= 4; ++i) {
        threads.emplace_back([&room, &begins, i] {
            while (!begins) {
            }
            for (std::size_t step = 1; step <= steps; ++step) {
                room.make(blocks, 1000 * step + i);
            }
        });
    }
    begins = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}
