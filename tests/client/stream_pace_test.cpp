#include "client/stream_pace.h"

#include <gtest/gtest.h>

namespace
{

using zrn::FrameStep;
using zrn::StreamPace;

FrameStep after(std::uint32_t missing)
{
    FrameStep step;
    step.missing = missing;
    return step;
}

TEST(StreamPaceTest, LeavesAFifthToTheErrorOfTheRate)
{
    StreamPace pace;
    for (int i = 0; i < 40; ++i) {
        pace.noteFrame(0.05, after(0)); // 20 frames each second
    }
    EXPECT_TRUE(pace.isCountable(203.0 / 20));
    EXPECT_FALSE(pace.isCountable(204.0 / 20));
}

TEST(StreamPaceTest, CountsTheFramesThatTheHostMissed)
{
    StreamPace pace;
    for (int i = 0; i < 10; ++i) {
        pace.noteFrame(0.2, after(3)); // 20 frames each second, of which 5 arrive
    }
    EXPECT_TRUE(pace.isCountable(203.0 / 20));
    EXPECT_FALSE(pace.isCountable(204.0 / 20));
}

TEST(StreamPaceTest, NeedsASecondOfStream)
{
    StreamPace pace;
    EXPECT_FALSE(pace.isCountable(0.1));
    pace.noteFrame(0.9, after(8));
    EXPECT_FALSE(pace.isCountable(0.1));
    pace.noteFrame(0.125, after(0));
    EXPECT_TRUE(pace.isCountable(0.1));
}

} // namespace
