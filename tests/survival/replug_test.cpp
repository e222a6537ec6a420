// A camera that leaves and comes back, again and again, in one process.

#include "camera_rig.h"
#include "process_usage.h"
#include "serious_lines.h"

#include <iostream>

namespace
{

using survival::ProcessUsage;

using Replug = survival::CameraRig;

TEST_F(Replug, FramesAreExactAndNothingGrows)
{
    constexpr int settling = 15; // caches, buffers and thread stacks reach their size
    // Each opened camera costs a device descriptor and its three strings.
    constexpr long allowedBytesPerCycle = 256;
    // The caches that malloc has for each thread fill, and count as allocated.
    constexpr long allowedBytes = 64 * 1024;
    const int cycles = survival::fromEnvironment("ZRN_REPLUG_CYCLES", 50);
    ASSERT_GT(cycles, settling);

    survival::expectLog(" uvc_get_gain get cur failed ret: -");
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
    const int counted = cycles - settling;
    const long growth = after.allocatedBytes - before.allocatedBytes;
    std::cout << counted << " cycles: " << growth << " bytes more allocated, resident "
              << before.residentKiB << " -> " << after.residentKiB << " KiB, descriptors "
              << before.descriptors << " -> " << after.descriptors << ", threads " << before.threads
              << " -> " << after.threads << '\n';
    EXPECT_LE(growth, allowedBytes + counted * allowedBytesPerCycle);
    EXPECT_LE(after.descriptors, before.descriptors);
    EXPECT_LE(after.threads, before.threads);
}

} // namespace
