#include "frame_model.h"
#include "payloads.h"
#include "usb_guards/frame_boundaries.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <map>
#include <optional>
#include <random>
#include <vector>

namespace
{

using usbguards::FrameBoundaries;
using usbguards::PayloadHeader;
using namespace payloads;
using Ended = FrameBoundaries::EndedFrame;

Payload withClocks(std::uint32_t time, std::uint32_t clock, std::uint16_t busFrame,
                   std::uint8_t info = 0)
{
    Payload result = {12, static_cast<std::uint8_t>(presentationTime | sourceClock | info)};
    for (const auto& [value, bytes] :
         {std::pair{time, 4}, std::pair{clock, 4}, std::pair{std::uint32_t{busFrame}, 2}}) {
        for (int i = 0; i < bytes; ++i) {
            result.push_back(static_cast<std::uint8_t>(value >> 8 * i));
        }
    }
    result.push_back(0); // of the picture
    return result;
}

class FrameBoundariesTest : public testing::Test
{
protected:
    std::vector<Ended> follow(const Payload& sent)
    {
        ++now;
        const auto ended = m_boundaries.follow(PayloadHeader::of(sent), sent, now);
        return {ended.begin(), ended.end()};
    }

    std::int64_t now = 0; ///< of the last payload

private:
    FrameBoundaries m_boundaries;
};

void expectFrame(const Ended& frame, std::uint32_t sequence, std::int64_t first, std::int64_t last,
                 std::uint64_t bytes)
{
    EXPECT_EQ(frame.sequence, sequence);
    EXPECT_EQ(frame.times.first, first);
    EXPECT_EQ(frame.times.last, last);
    EXPECT_EQ(frame.times.bytes, bytes);
}

constexpr std::uint64_t frameBytes = 24;

// Frames of a few bytes with every kind of damage, and a callback thread that is often
// late: each frame that is handed over has its own times. The bytes of a frame tell when they were
// sent.
void expectOwnTimes(std::optional<std::size_t> buffer)
{
    const char* const count = std::getenv("ZRN_TIMED_FRAMES");
    const std::uint32_t frames = count ? static_cast<std::uint32_t>(std::atoi(count)) : 50'000;
    std::mt19937 random(20); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same frames in each run
    const auto oneIn = [&random](unsigned often) { return random() % often == 0; };

    FrameBoundaries boundaries(buffer.value_or(FrameBoundaries::unlimited));
    StreamTimes times(frameBytes);
    FrameModel::Held held;
    std::uint32_t lastHandedOver = 0;
    std::uint64_t matched = 0;
    std::uint64_t wholeHeld = 0;
    std::uint64_t wholeHandedOver = 0;
    FrameModel libuvc(
        [&](const FrameModel::Held& frame) {
            held = frame;
            wholeHeld += frame.bytes.size() == frameBytes ? 1U : 0U;
        },
        buffer);

    std::int64_t now = 0;
    const auto send = [&](const Payload& sent) {
        ++now;
        Payload stamped = sent;
        const std::size_t header = stamped.empty() ? 0 : stamped[0];
        for (std::size_t i = header; i + sizeof now <= stamped.size(); i += sizeof now) {
            std::memcpy(stamped.data() + i, &now, sizeof now);
        }
        for (const Ended& frame : boundaries.follow(PayloadHeader::of(stamped), stamped, now)) {
            times.note(frame.sequence, frame.times);
        }
        libuvc.process(stamped);
        // libuvc's thread wakes now and then, and sees the frame that is held.
        if (held.sequence == lastHandedOver || oneIn(3)) {
            return;
        }
        lastHandedOver = held.sequence;
        const auto found = times.find(held.sequence);
        ASSERT_TRUE(found);
        ASSERT_EQ(found->times.bytes, held.bytes.size());
        ASSERT_EQ(found->wholeFrames, wholeHeld);
        wholeHandedOver += held.bytes.size() == frameBytes ? 1U : 0U;
        if (held.bytes.size() == frameBytes) {
            std::int64_t first = 0;
            std::int64_t last = 0;
            std::memcpy(&first, held.bytes.data(), sizeof first);
            std::memcpy(&last, held.bytes.data() + frameBytes - sizeof last, sizeof last);
            ASSERT_EQ(found->times.first, first);
            ASSERT_EQ(found->times.last, last);
            ++matched;
        }
    };

    std::uint8_t id = 0;
    for (std::uint32_t i = 0; i < frames && !testing::Test::HasFatalFailure(); ++i) {
        id ^= frameId;
        const bool isDamaged = oneIn(4);
        const auto damage = isDamaged ? random() % 10 : 10;
        for (int part = 0; part < 3; ++part) {
            std::uint8_t info = id | (part == 2 ? endOfFrame : 0);
            std::size_t bytes = 8;
            switch (damage) {
            case 0: // a payload is lost
                if (part == 1) {
                    continue;
                }
                break;
            case 1: // the last payload is lost, and with it the end
                if (part == 2) {
                    continue;
                }
                break;
            case 2: // no end is said
                info &= static_cast<std::uint8_t>(~endOfFrame);
                break;
            case 3:
                if (part == static_cast<int>(i % 3)) {
                    info |= error;
                }
                break;
            case 4: // too long
                bytes += part == 0 ? 8 : 0;
                break;
            case 5: // too short
                bytes -= part == 1 ? 8 : 0;
                break;
            case 6: // the end comes without data, behind the frame
                info &= static_cast<std::uint8_t>(~endOfFrame);
                break;
            case 7: // an end in the middle
                info |= part == 0 ? endOfFrame : 0;
                break;
            case 8: // nothing, and what is no payload
                send({});
                send({9, info, 0});
                break;
            case 9: // the id does not toggle
                info ^= frameId;
                break;
            default:
                break;
            }
            send(payload(bytes, info));
        }
        if (damage == 6) {
            send(payload(0, id | endOfFrame));
        }
    }
    EXPECT_GT(matched, frames / 3) << "most frames are whole, and most of them are handed over";
    EXPECT_GT(wholeHeld, wholeHandedOver) << "libuvc overtook some";
    testing::Test::RecordProperty("matched", std::to_string(matched));
}

} // namespace

TEST_F(FrameBoundariesTest, AFrameGoesFromItsFirstPayloadToTheOneThatEndsIt)
{
    EXPECT_TRUE(follow(payload(5, frameId)).empty());
    EXPECT_TRUE(follow(payload(5, frameId)).empty());
    const auto first = follow(payload(1, frameId | endOfFrame));
    ASSERT_EQ(first.size(), 1U);
    expectFrame(first[0], 1, 1, 3, 11);
    const auto second = follow(payload(4, endOfFrame));
    ASSERT_EQ(second.size(), 1U);
    expectFrame(second[0], 2, 4, 4, 4);
}

TEST_F(FrameBoundariesTest, AToggledIdEndsAFrameAtThePayloadBeforeIt)
{
    follow(payload(5, frameId));
    follow(payload(6, frameId));
    const auto ended = follow(payload(7, 0));
    ASSERT_EQ(ended.size(), 1U);
    expectFrame(ended[0], 1, 1, 2, 11);
}

TEST_F(FrameBoundariesTest, OnePayloadMayEndTwoFrames)
{
    follow(payload(5, frameId));
    const auto ended = follow(payload(7, endOfFrame));
    ASSERT_EQ(ended.size(), 2U);
    expectFrame(ended[0], 1, 1, 1, 5);
    expectFrame(ended[1], 2, 2, 2, 7);
}

TEST_F(FrameBoundariesTest, ToggledIdsWithoutDataBetweenAreNoFrames)
{
    follow(payload(0, frameId));
    follow(payload(0, 0));
    follow(payload(0, frameId | endOfFrame));
    const auto ended = follow(payload(1, endOfFrame));
    ASSERT_EQ(ended.size(), 1U);
    expectFrame(ended[0], 1, 4, 4, 1);
}

TEST_F(FrameBoundariesTest, AnEndWithoutDataIsNone)
{
    follow(payload(5, frameId));
    EXPECT_TRUE(follow(payload(0, frameId | endOfFrame)).empty());
    const auto ended = follow(payload(5, frameId | endOfFrame));
    ASSERT_EQ(ended.size(), 1U);
    expectFrame(ended[0], 1, 1, 3, 10);
}

TEST_F(FrameBoundariesTest, WhatLibuvcDropsIsNoPartOfAFrame)
{
    follow(payload(5, frameId));
    EXPECT_TRUE(follow(payload(5, error | endOfFrame)).empty()) << "not even its toggled id counts";
    EXPECT_TRUE(follow({}).empty());
    EXPECT_TRUE(follow({200, endOfFrame, 0}).empty());
    const auto ended = follow(payload(5, frameId | endOfFrame));
    ASSERT_EQ(ended.size(), 1U);
    expectFrame(ended[0], 1, 1, 5, 10);
}

TEST_F(FrameBoundariesTest, APayloadWithoutInfoBelongsToTheFrame)
{
    follow(payload(5, frameId));
    EXPECT_TRUE(follow({0, endOfFrame, 0}).empty());
    EXPECT_TRUE(follow({1, endOfFrame, 0}).empty());
    const auto ended = follow(payload(1, frameId | endOfFrame));
    ASSERT_EQ(ended.size(), 1U);
    expectFrame(ended[0], 1, 1, 4, 5 + 3 + 2 + 1);
}

TEST(FrameBoundaries, AFullFrameEndsAndWhatGoesBeyondIsNotOfIt)
{
    FrameBoundaries boundaries(10);
    auto follow = [&boundaries, now = 0](const Payload& sent) mutable {
        const auto ended = boundaries.follow(PayloadHeader::of(sent), sent, ++now);
        return std::vector<Ended>(ended.begin(), ended.end());
    };
    EXPECT_TRUE(follow(payload(6, frameId)).empty());
    const auto full = follow(payload(6, frameId)); // 2 bytes too long
    ASSERT_EQ(full.size(), 1U);
    expectFrame(full[0], 1, 1, 2, 10);
    EXPECT_TRUE(follow(payload(3, frameId)).empty()) << "the next frame, whatever the id";
    const auto toggled = follow(payload(10, 0));
    ASSERT_EQ(toggled.size(), 2U);
    expectFrame(toggled[0], 2, 3, 3, 3);
    expectFrame(toggled[1], 3, 4, 4, 10);
    const auto both = follow(payload(10, endOfFrame));
    ASSERT_EQ(both.size(), 1U) << "full and said to end";
    expectFrame(both[0], 4, 5, 5, 10);
}

TEST_F(FrameBoundariesTest, ClocksAreThoseOfTheFirstPayloadThatTellsThem)
{
    follow(payload(1, frameId));
    constexpr std::uint16_t reservedBits = 0xF800;
    follow(withClocks(0x01020304, 0x05060708, reservedBits | 0x0607, frameId));
    const auto ended = follow(withClocks(9, 9, 9, frameId | endOfFrame));
    ASSERT_EQ(ended.size(), 1U);
    EXPECT_EQ(ended[0].times.presentationTime, 0x01020304U);
    EXPECT_EQ(ended[0].times.sourceClock, (PayloadTimes::SourceClock{0x05060708, 0x0607}));

    const auto next = follow(payload(1, endOfFrame));
    ASSERT_EQ(next.size(), 1U);
    EXPECT_FALSE(next[0].times.presentationTime);
    EXPECT_FALSE(next[0].times.sourceClock);
}

TEST_F(FrameBoundariesTest, ASourceClockMayStandAlone)
{
    const Payload sent = {8, sourceClock | endOfFrame, 1, 0, 0, 0, 2, 0, 0};
    const auto ended = follow(sent);
    ASSERT_EQ(ended.size(), 1U);
    EXPECT_FALSE(ended[0].times.presentationTime);
    EXPECT_EQ(ended[0].times.sourceClock, (PayloadTimes::SourceClock{1, 2}));
}

TEST_F(FrameBoundariesTest, ClocksBeyondTheHeaderAreNotRead)
{
    Payload sent = withClocks(1, 2, 3, endOfFrame);
    sent[0] = 11;
    const auto ended = follow(sent);
    ASSERT_EQ(ended.size(), 1U);
    EXPECT_FALSE(ended[0].times.presentationTime);
    EXPECT_FALSE(ended[0].times.sourceClock);
}

TEST(FrameBoundaries, DamagedAndOvertakenFramesKeepTheirTimes)
{
    expectOwnTimes(std::nullopt);
}

TEST(FrameBoundaries, SoTheyDoWhereFullFramesEnd)
{
    for (const std::size_t announced : {frameBytes, frameBytes + 8}) {
        expectOwnTimes(announced);
    }
}
