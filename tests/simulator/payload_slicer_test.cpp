#include "model/payload_slicer.h"

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <tuple>
#include <vector>

namespace zrnsim
{
namespace
{

constexpr std::size_t headerSize = PayloadPiece::headerSize;

FramePtr makeFrame(std::size_t size, const FrameFault& fault = {})
{
    auto frame = std::make_shared<Frame>();
    frame->captured = Clock::now();
    frame->fault = fault;
    std::mt19937 random(static_cast<unsigned>(size));
    for (std::size_t i = 0; i < size; ++i) {
        frame->bytes.push_back(static_cast<std::uint8_t>(random()));
    }
    return frame;
}

Bytes contentOf(const PayloadPiece& piece)
{
    Bytes bytes(piece.header().begin(), piece.header().end());
    bytes.insert(bytes.end(), piece.body().begin(), piece.body().end());
    return bytes;
}

/// All transfers of a slicer until it has nothing more.
std::vector<Bytes> transfers(PayloadSlicer& slicer, std::size_t length)
{
    std::vector<Bytes> result;
    while (const auto piece = slicer.next(length)) {
        result.push_back(contentOf(*piece));
        EXPECT_LE(result.back().size(), length);
    }
    return result;
}

/// What a host controller makes of a stream of packets: payloads end with a short transfer or when
/// they have their largest size.
std::vector<Bytes> payloads(const std::vector<Bytes>& pieces, std::size_t longestTransfer,
                            std::size_t maxPayload)
{
    std::vector<Bytes> result;
    Bytes current;
    for (const Bytes& piece : pieces) {
        current.insert(current.end(), piece.begin(), piece.end());
        if (piece.size() < longestTransfer || current.size() == maxPayload) {
            if (!current.empty()) {
                result.push_back(current);
            }
            current.clear();
        }
    }
    EXPECT_TRUE(current.empty()) << "a payload does not end";
    return result;
}

struct Received {
    Bytes data;
    std::vector<std::uint8_t> flags;
};

/// Puts a frame together from its payloads.
Received assemble(const std::vector<Bytes>& received)
{
    Received result;
    for (const Bytes& payload : received) {
        if (payload.size() < headerSize || payload[0] != headerSize) {
            ADD_FAILURE() << "payload without a header";
            return result;
        }
        result.flags.push_back(payload[1]);
        result.data.insert(result.data.end(), payload.begin() + headerSize, payload.end());
    }
    return result;
}

using Shape = std::tuple<std::size_t, std::uint32_t, std::size_t>; // frame, payload, transfer

class SliceShapes : public testing::TestWithParam<Shape>
{
};

INSTANTIATE_TEST_SUITE_P(Bulk, SliceShapes,
                         testing::Combine(testing::Values(0U, 1U, 500U, 1012U, 4096U, 10000U),
                                          testing::Values(64U, 512U, 1024U, 3072U, 131072U),
                                          testing::Values(512U, 1024U, 16384U, 131072U)));

TEST_P(SliceShapes, GiveTheFrameBackToTheHost)
{
    const auto [frameSize, payloadSize, transfer] = GetParam();
    PayloadSlicer slicer;
    slicer.configure(payloadSize, 512);
    const FramePtr frame = makeFrame(frameSize);
    slicer.load(frame);
    const Received received =
        assemble(payloads(transfers(slicer, transfer), transfer, payloadSize));
    EXPECT_EQ(received.data, frame->bytes);
    ASSERT_FALSE(received.flags.empty());
    for (std::size_t i = 0; i < received.flags.size(); ++i) {
        const bool isLast = i + 1 == received.flags.size();
        EXPECT_EQ((received.flags[i] & uvc::headerEndOfFrame) != 0, isLast);
        EXPECT_EQ(received.flags[i] & uvc::headerError, 0);
        EXPECT_NE(received.flags[i] & uvc::headerEndOfHeader, 0);
    }
    EXPECT_TRUE(slicer.isIdle());
}

TEST(PayloadSlicer, TogglesTheFrameIdWithEachFrame)
{
    PayloadSlicer slicer;
    slicer.configure(256, 0);
    std::vector<std::uint8_t> ids;
    for (int i = 0; i < 4; ++i) {
        slicer.load(makeFrame(600));
        const Received received = assemble(transfers(slicer, 256));
        for (const std::uint8_t flags : received.flags) {
            EXPECT_EQ(flags & uvc::headerFrameId, received.flags[0] & uvc::headerFrameId);
        }
        ids.push_back(received.flags.at(0) & uvc::headerFrameId);
    }
    EXPECT_EQ(ids, (std::vector<std::uint8_t>{0, 1, 0, 1}));
}

TEST(PayloadSlicer, AllPayloadsOfAFrameHaveItsPresentationTime)
{
    PayloadSlicer slicer;
    slicer.configure(256, 0);
    slicer.load(makeFrame(1000));
    const auto pieces = transfers(slicer, 256);
    ASSERT_GT(pieces.size(), 2U);
    for (const Bytes& piece : pieces) {
        EXPECT_NE(piece[1] & uvc::headerPresentationTime, 0);
        EXPECT_NE(piece[1] & uvc::headerSourceClock, 0);
        EXPECT_EQ(readLittleEndian(piece, 2, 4), readLittleEndian(pieces[0], 2, 4));
    }
}

TEST(PayloadSlicer, EndsAPayloadOnAPacketBoundaryWithAZeroLengthPacket)
{
    PayloadSlicer slicer;
    slicer.configure(131072, 512);
    slicer.load(makeFrame(2048 - headerSize));
    EXPECT_EQ(slicer.next(2048)->size(), 2048U);
    EXPECT_FALSE(slicer.isIdle());
    EXPECT_EQ(slicer.next(2048)->size(), 0U);
    EXPECT_EQ(slicer.next(2048), std::nullopt);

    // A transfer with room left ends by being short, and the largest payload ends by its size.
    slicer.load(makeFrame(2048 - headerSize));
    EXPECT_EQ(slicer.next(4096)->size(), 2048U);
    EXPECT_TRUE(slicer.isIdle());
    slicer.configure(2048, 512);
    slicer.load(makeFrame(2048 - headerSize));
    EXPECT_EQ(slicer.next(2048)->size(), 2048U);
    EXPECT_TRUE(slicer.isIdle());
}

TEST(PayloadSlicer, LeavesOutPayloadsFromTheMiddle)
{
    PayloadSlicer slicer;
    slicer.configure(112, 0);
    FrameFault fault;
    fault.lostPayloads = 2;
    const FramePtr frame = makeFrame(1000, fault);
    slicer.load(frame);
    Bytes expected(frame->bytes.begin(), frame->bytes.begin() + 100);
    expected.insert(expected.end(), frame->bytes.begin() + 300, frame->bytes.end());
    std::vector<Bytes> received;
    std::uint32_t lost = 0;
    while (const auto piece = slicer.next(112)) {
        received.push_back(contentOf(*piece));
        lost += piece->payloadsLost;
    }
    EXPECT_EQ(assemble(received).data, expected);
    EXPECT_EQ(lost, 2U);
}

TEST(PayloadSlicer, KeepsFirstAndLastPayloadHoweverManyAreLost)
{
    PayloadSlicer slicer;
    slicer.configure(112, 0);
    FrameFault fault;
    fault.lostPayloads = 1000;
    slicer.load(makeFrame(1000, fault));
    const Received received = assemble(transfers(slicer, 112));
    EXPECT_EQ(received.data.size(), 200U);
    EXPECT_NE(received.flags.back() & uvc::headerEndOfFrame, 0);
}

TEST(PayloadSlicer, SetsErrorBitsFromTheFirstPayload)
{
    PayloadSlicer slicer;
    slicer.configure(112, 0);
    FrameFault fault;
    fault.errorPayloads = 3;
    slicer.load(makeFrame(1000, fault));
    const Received received = assemble(transfers(slicer, 112));
    ASSERT_EQ(received.flags.size(), 10U);
    for (std::size_t i = 0; i < received.flags.size(); ++i) {
        EXPECT_EQ((received.flags[i] & uvc::headerError) != 0, i < 3);
    }
}

TEST(PayloadSlicer, CanWithholdTheEndOfFrame)
{
    PayloadSlicer slicer;
    slicer.configure(512, 0);
    FrameFault fault;
    fault.withoutEndOfFrame = true;
    slicer.load(makeFrame(1000, fault));
    for (const std::uint8_t flags : assemble(transfers(slicer, 512)).flags) {
        EXPECT_EQ(flags & uvc::headerEndOfFrame, 0);
    }
}

} // namespace
} // namespace zrnsim
