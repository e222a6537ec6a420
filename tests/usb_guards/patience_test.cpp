#include "usb_guards/patience.h"

#include <gtest/gtest.h>

namespace
{

using std::chrono::milliseconds;
using usbguards::Patience;

const Patience::Clock::time_point start{};

TEST(Patience, IsLongAsARule)
{
    Patience patience;
    EXPECT_EQ(patience.limit(start), Patience::ordinary);
    patience.noteAnswer();
    EXPECT_EQ(patience.limit(start), Patience::ordinary);
}

TEST(Patience, IsBriefAfterALapseUntilTheNextAnswer)
{
    Patience patience;
    patience.noteLapse(false, start);
    EXPECT_EQ(patience.limit(start), Patience::brief);
    patience.noteAnswer();
    EXPECT_EQ(patience.limit(start), Patience::ordinary);
}

TEST(Patience, IsBriefForAMomentOnly)
{
    Patience patience;
    patience.noteLapse(false, start);
    EXPECT_TRUE(patience.isBrief(start + milliseconds(999)));
    EXPECT_FALSE(patience.isBrief(start + milliseconds(1000)));
}

/// A host that asks all the time a camera that needs 150 ms for each answer.
TEST(Patience, LapsesOfTheShortLimitDoNotProlongIt)
{
    Patience patience;
    Patience::Clock::time_point now = start;
    patience.noteLapse(false, now);
    int unheard = 0;
    while (patience.isBrief(now)) {
        now += Patience::brief;
        patience.noteLapse(true, now);
        ++unheard;
        ASSERT_LE(unheard, 10);
    }
    EXPECT_EQ(patience.limit(now), Patience::ordinary);
}

} // namespace
