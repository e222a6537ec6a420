#include "visits.h"

#include "other_threads.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace usbguards
{
namespace
{

std::atomic<int> visitors = 0;

} // namespace

Visit::Visit()
{
    visitors.fetch_add(1);
}

Visit::~Visit()
{
    visitors.fetch_sub(1);
}

void Visit::waitForEnd()
{
    // A visit leaves out the few instructions before and behind it.
    constexpr std::chrono::seconds entryOrExit(1);
    waitUntilOthersHaveMoved(entryOrExit);
    while (visitors.load() > 0) {
        std::this_thread::yield();
    }
    waitUntilOthersHaveMoved(entryOrExit);
}

} // namespace usbguards
