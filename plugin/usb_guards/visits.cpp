#include "visits.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace usbguards
{
namespace
{

std::atomic<int> visitors = 0;
std::atomic<bool> hadStrangers = false;

} // namespace

Visit::Visit()
{
    visitors.fetch_add(1);
}

Visit::~Visit()
{
    visitors.fetch_sub(1);
}

void Visit::noteStranger()
{
    if (!hadStrangers.load(std::memory_order_relaxed)) {
        hadStrangers.store(true);
    }
}

void Visit::waitForEnd()
{
    // A visit leaves out the few instructions before and behind it.
    constexpr std::chrono::milliseconds entryAndExit(20);
    while (visitors.load() > 0) {
        std::this_thread::yield();
    }
    if (hadStrangers.load()) {
        std::this_thread::sleep_for(entryAndExit);
    }
}

} // namespace usbguards
