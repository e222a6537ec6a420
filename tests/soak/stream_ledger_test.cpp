#include "stream_ledger.h"

#include <gtest/gtest.h>

namespace
{

using soak::Outcomes;
using soak::SentFrame;
using soak::StreamLedger;

constexpr int slots = 2;

SentFrame intact(std::uint32_t number)
{
    return {number, soak::now(), true, false};
}

class Ledger : public testing::Test
{
protected:
    Ledger() { ledger.noteStarted(); }

    /// A frame is sent and reaches the driver.
    void arrive(std::uint32_t number)
    {
        sent.push_back(intact(number));
        ledger.noteArrival(number);
    }

    StreamLedger ledger = StreamLedger(slots);
    std::vector<SentFrame> sent;
};

TEST_F(Ledger, ExplainsFramesThatTheHostDidNotWant)
{
    for (std::uint32_t number = 1; number <= 4; ++number) {
        arrive(number);
    }
    EXPECT_EQ(ledger.noteDelivery(3, false), 3U); // two slots: 1 and 2 are overwritten
    EXPECT_EQ(ledger.noteDelivery(4, false), 4U);
    arrive(5);
    arrive(6);
    EXPECT_EQ(ledger.noteDelivery(6, true), 6U);
    arrive(7);
    ledger.noteDiscard();
    arrive(8);
    EXPECT_EQ(ledger.settle(sent), (Outcomes{{"delivered", 3},
                                             {"overwritten in the cache", 2},
                                             {"skipped for the newest", 1},
                                             {"discarded by the host", 1},
                                             {"left in the cache at the end", 1}}));
}

TEST_F(Ledger, DoesNotExplainWhatTheDriverLoses)
{
    arrive(1);
    arrive(2);
    EXPECT_EQ(ledger.noteDelivery(2, false), 2U); // both fit into the cache
    EXPECT_EQ(ledger.settle(sent),
              (Outcomes{{"delivered", 1}, {"unexplained: lost in the driver", 1}}));
}

TEST_F(Ledger, DoesNotExplainFramesOutOfNothing)
{
    arrive(1);
    EXPECT_EQ(ledger.noteDelivery(9, false), std::nullopt);
    ledger.noteDelivery(1, false);
    ledger.noteDelivery(1, false);
    EXPECT_EQ(ledger.settle(sent),
              (Outcomes{{"unexplained: delivered twice", 1},
                        {"unexplained: delivered without having been sent", 1}}));
}

TEST_F(Ledger, ExplainsFramesThatDoNotReachTheDriver)
{
    SentFrame cut = intact(1);
    cut.isComplete = false;
    SentFrame damaged = intact(2);
    damaged.isDamaged = true;
    sent = {cut, damaged, intact(3)};
    ledger.noteArrival(std::nullopt); // of the damaged frame
    arrive(4);
    sent.push_back(intact(5));
    sent.push_back(intact(6));
    ledger.noteDelivery(4, false);
    EXPECT_EQ(ledger.settle(sent),
              (Outcomes{{"cut off on the camera's side", 1},
                        {"damaged on purpose, and refused", 1},
                        {"overtaken in libuvc, which hands over the newest", 1},
                        {"delivered", 1},
                        {"under way when the stream was stopped", 2}}));
}

TEST_F(Ledger, DoesNotExplainAStreamThatStops)
{
    for (std::uint32_t number = 1; number <= 3; ++number) {
        sent.push_back(intact(number));
    }
    EXPECT_EQ(ledger.settle(sent), (Outcomes{{"under way when the stream was stopped", 2},
                                             {"unexplained: lost on the way to the driver", 1}}));
}

TEST_F(Ledger, KnowsFramesByTrailersThatRepeat)
{
    // A byte from 0x80 on is extended into all bits above it.
    arrive(0x0180);
    arrive(0x0280);
    EXPECT_EQ(ledger.noteDelivery(~std::uint64_t{0x7f}, false), 0x0280U);
}

} // namespace
