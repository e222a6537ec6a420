// A camera that leaves and comes back, again and again, in one process.

#include "camera_rig.h"
#include "process_usage.h"

#include <cstdlib>
#include <iostream>

namespace
{

using survival::ProcessUsage;

/// ZRN_REPLUG_CYCLES, or what an ordinary test run has time for.
int cyclesFromEnvironment()
{
    constexpr int ordinary = 50;
    const char* const text = std::getenv("ZRN_REPLUG_CYCLES");
    return text ? std::atoi(text) : ordinary;
}

using Replug = survival::CameraRig;

TEST_F(Replug, FramesAreExactAndNothingGrows)
{
    constexpr int settling = 10; // caches and thread stacks reach their size
    constexpr double allowedBytesPerCycle = 4096;
    const int cycles = cyclesFromEnvironment();
    ASSERT_GT(cycles, settling);

    ProcessUsage before;
    for (int cycle = 0; cycle < cycles && !HasFatalFailure(); ++cycle) {
        if (cycle == settling) {
            camera.reset();
            before = ProcessUsage::now();
        }
        SCOPED_TRACE(cycle);
        connect();
        start();
        expectExactFrame();
        bus.unplug();
        EXPECT_FALSE(isOnline());
        EXPECT_EQ((*camera)->stopStream(0), ErrorCode::Success);
        EXPECT_EQ((*camera)->disconnectDevice(), ErrorCode::Success);
        bus.restore();
        enumerateUntilPresent();
    }

    camera.reset();
    const ProcessUsage after = ProcessUsage::now();
    const double growth = static_cast<double>(after.allocatedBytes - before.allocatedBytes) /
                          static_cast<double>(cycles - settling);
    std::cout << cycles << " cycles: " << growth << " bytes/cycle allocated, resident "
              << before.residentKiB << " -> " << after.residentKiB << " KiB, descriptors "
              << before.descriptors << " -> " << after.descriptors << ", threads " << before.threads
              << " -> " << after.threads << '\n';
    EXPECT_LE(growth, allowedBytesPerCycle);
    EXPECT_LE(after.descriptors, before.descriptors);
    EXPECT_LE(after.threads, before.threads);
}

} // namespace
