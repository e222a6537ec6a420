#include "payloads.h"
#include "usb_guards/payload_meter.h"

#include <gtest/gtest.h>

namespace
{

using usbguards::PayloadHeader;
using usbguards::PayloadMeter;
using namespace payloads;

constexpr std::uint8_t bothClocks = presentationTime | sourceClock;
constexpr std::size_t half = PayloadMeter::frameBufferSize / 2;

bool accept(PayloadMeter& meter, const Payload& sent)
{
    return meter.accept(PayloadHeader::of(sent), sent.size());
}

TEST(PayloadMeter, AFrameMayFillTheBufferAndNoMore)
{
    PayloadMeter meter;
    EXPECT_TRUE(accept(meter, payload(half, 0)));
    EXPECT_TRUE(accept(meter, payload(half, 0)));
    EXPECT_FALSE(accept(meter, payload(1, 0)));
    EXPECT_FALSE(accept(meter, payload(1, endOfFrame))) << "libuvc copies before it looks";
}

TEST(PayloadMeter, TheEndOfAFrameEmptiesTheBuffer)
{
    PayloadMeter meter;
    EXPECT_TRUE(accept(meter, payload(half, 0)));
    EXPECT_TRUE(accept(meter, payload(half, endOfFrame)));
    EXPECT_TRUE(accept(meter, payload(2 * half, 0)));
}

TEST(PayloadMeter, AnEmptyPayloadDoesNotEndAFrame)
{
    PayloadMeter meter;
    EXPECT_TRUE(accept(meter, payload(2 * half, 0)));
    EXPECT_TRUE(accept(meter, payload(0, endOfFrame)));
    EXPECT_FALSE(accept(meter, payload(1, 0)));
}

TEST(PayloadMeter, AnotherFrameIdEmptiesTheBuffer)
{
    PayloadMeter meter;
    EXPECT_TRUE(accept(meter, payload(2 * half, 0)));
    EXPECT_TRUE(accept(meter, payload(2 * half, frameId)));
    EXPECT_FALSE(accept(meter, payload(1, frameId)));
}

TEST(PayloadMeter, AWithheldPayloadLeavesTheFrameAsItIs)
{
    PayloadMeter meter;
    EXPECT_TRUE(accept(meter, payload(2 * half, 0)));
    EXPECT_FALSE(accept(meter, payload(2 * half + 1, frameId)));
    EXPECT_FALSE(accept(meter, payload(1, 0))) << "the old frame is still being collected";
}

TEST(PayloadMeter, PayloadsThatLibuvcDropsCountNothing)
{
    PayloadMeter meter;
    EXPECT_TRUE(accept(meter, payload(2 * half, 0)));
    EXPECT_TRUE(accept(meter, payload(half, error | frameId)));
    EXPECT_TRUE(accept(meter, Payload{}));
    EXPECT_TRUE(accept(meter, Payload{200, 0, 0}));
    EXPECT_FALSE(accept(meter, payload(1, 0)));
}

TEST(PayloadMeter, APayloadWithoutHeaderInfoBelongsToTheFrame)
{
    PayloadMeter meter;
    EXPECT_TRUE(accept(meter, payload(half, frameId)));
    EXPECT_TRUE(accept(meter, Payload(half, 0)));
    EXPECT_FALSE(accept(meter, payload(1, frameId)));
}

TEST(PayloadMeter, AnnouncedHeaderFieldsMustLieWithinTheMemory)
{
    PayloadMeter meter;
    const Payload sent = payload(4, bothClocks);
    EXPECT_FALSE(meter.accept(PayloadHeader::of(sent), 11));
    EXPECT_TRUE(meter.accept(PayloadHeader::of(sent), 12));
}

} // namespace
