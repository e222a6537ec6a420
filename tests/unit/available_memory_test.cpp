// How much memory a ring may take, from what the kernel tells.

#include "available_memory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

constexpr std::uint64_t kilo = 1024;

const std::string machine = "MemTotal:       16000000 kB\n"
                            "MemFree:          100000 kB\n"
                            "MemAvailable:    8000000 kB\n"
                            "SwapFree:       99999999 kB\n";
const std::string process =
    "Name:\tsome host\nVmPeak:\t 900 kB\nVmSize:\t     300 kB\nVmData:\t 100 kB\n";

} // namespace

TEST(MemoryGroups, AreTheirOwnAndAllAbove)
{
    EXPECT_THAT(memoryGroups("0::/user.slice/user-1000.slice/host.scope\n"),
                ElementsAre(MemoryGroup{true, "/user.slice/user-1000.slice/host.scope"},
                            MemoryGroup{true, "/user.slice/user-1000.slice"},
                            MemoryGroup{true, "/user.slice"}, MemoryGroup{true, ""}));
    EXPECT_THAT(memoryGroups("0::/\n"), ElementsAre(MemoryGroup{true, ""}));
}

TEST(MemoryGroups, OfTheFirstVersionAreThoseOfTheMemoryController)
{
    EXPECT_THAT(memoryGroups("12:cpuset:/other\n9:cpu,memory:/docker/0123\n3:memory_not:/no\n"
                             "0::/unified\n"),
                ElementsAre(MemoryGroup{false, "/docker/0123"}, MemoryGroup{false, "/docker"},
                            MemoryGroup{false, ""}, MemoryGroup{true, "/unified"},
                            MemoryGroup{true, ""}));
}

TEST(MemoryGroups, OfNonsenseAreNone)
{
    for (const char* text : {"", "\n\n", "memory", ":", "1:memory", "::::\n"}) {
        for (const MemoryGroup& group : memoryGroups(text)) {
            EXPECT_TRUE(group.isUnified) << text;
        }
    }
    EXPECT_THAT(memoryGroups("no colons here"), IsEmpty());
}

TEST(MemoryLeft, IsWhatTheMachineHas)
{
    EXPECT_EQ(memoryLeft({machine, process, {}}), 8000000 * kilo);
    EXPECT_EQ(memoryLeft({"", "", {}}), unlimitedMemory);
    EXPECT_EQ(memoryLeft({"MemAvailable: none\n", process, {}}), unlimitedMemory);
}

TEST(MemoryLeft, IsWhatTheNarrowestGroupLeaves)
{
    const GroupReport wide = {"9000000000\n", "1000\n", ""};
    const GroupReport narrow = {"5000000\n", "4000000\n",
                                "anon 1\ninactive_file 500\n"
                                "active_file 70\nslab_reclaimable 3\n"};
    EXPECT_EQ(memoryLeft({machine, process, {wide, narrow}}), 1000573U);
    EXPECT_EQ(memoryLeft({machine, process, {narrow, wide}}), 1000573U);
    EXPECT_EQ(memoryLeft({"", "", {{"max\n", "123\n", ""}}}), unlimitedMemory);
    EXPECT_EQ(memoryLeft({"", "", {{"", "", ""}}}), unlimitedMemory);
    EXPECT_EQ(memoryLeft({"", "", {{"100\n", "200\n", ""}}}), 0U);
    // More cache than usage: the two were not read at one moment.
    EXPECT_EQ(memoryLeft({"", "", {{"100\n", "20\n", "active_file 30\n"}}}), 100U);
}

TEST(MemoryLeft, CountsTheCacheOfGroupsBelowInTheFirstVersion)
{
    const GroupReport group = {"10000\n", "9000\n",
                               "inactive_file 1\nactive_file 2\n"
                               "total_inactive_file 300\ntotal_active_file 400\n"};
    EXPECT_EQ(memoryLeft({"", "", {group}}), 1700U);
}

TEST(MemoryLeft, IsWhatTheProcessAllowsItself)
{
    EXPECT_EQ(memoryLeft({machine, process, {}, 1000 * kilo}), 700 * kilo);
    EXPECT_EQ(memoryLeft({machine, process, {}, unlimitedMemory, 1000 * kilo}), 900 * kilo);
    EXPECT_EQ(memoryLeft({machine, process, {}, 200 * kilo}), 0U);
}

TEST(MemoryLeft, IsLessWhatIsPromised)
{
    EXPECT_EQ(memoryLeft({machine, process, {}}, 1000 * kilo), 7999000 * kilo);
    EXPECT_EQ(memoryLeft({machine, process, {}}, unlimitedMemory), 0U);
    EXPECT_EQ(memoryLeft({"", "", {{"100\n", "20\n", ""}}}, 30), 50U);
    EXPECT_EQ(memoryLeft({"", "", {}}, 30), unlimitedMemory);
    // The process's size has grown with the promise.
    EXPECT_EQ(memoryLeft({machine, process, {}, 1000 * kilo}, 500 * kilo), 700 * kilo);
}

TEST(AvailableMemory, IsKnownHere)
{
    EXPECT_GT(availableMemory(0), 0U);
    EXPECT_LT(availableMemory(0), unlimitedMemory);
    EXPECT_EQ(availableMemory(unlimitedMemory - 1), 0U);
}
