#include "stream_account.h"

#include <gtest/gtest.h>

namespace
{

using soak::Outcomes;
using soak::SentFrame;

std::vector<SentFrame> sentUpTo(std::uint32_t last)
{
    std::vector<SentFrame> sent;
    for (std::uint32_t number = 1; number <= last; ++number) {
        sent.push_back({number, soak::now(), true, false});
    }
    return sent;
}

TEST(StreamAccount, ExplainsWhatTheQueueDroppedAndWhatWasLostBefore)
{
    EXPECT_EQ(
        soak::settle({"", {2, 4}, 3, 1}, sentUpTo(5)),
        (Outcomes{{"taken", 2}, {"dropped from the queue", 1}, {"lost before the library", 2}}));
}

TEST(StreamAccount, DoesNotExplainMoreFramesThanWereSent)
{
    EXPECT_EQ(soak::settle({"", {1}, 4, 3}, sentUpTo(1)),
              (Outcomes{{"taken", 1},
                        {"dropped from the queue", 3},
                        {"unexplained: taken or dropped beyond what was sent", 3}}));
}

TEST(StreamAccount, DoesNotExplainFramesOutOfNothing)
{
    EXPECT_EQ(soak::settle({"", {2, 7}, 3, 0}, sentUpTo(2)),
              (Outcomes{{"taken", 1},
                        {"dropped from the queue", 0},
                        {"lost before the library", 1},
                        {"unexplained: taken, but not sent", 1},
                        {"unexplained: grabbed, but neither taken nor dropped", 1}}));
}

} // namespace
