#include "usb_guards/descriptor_repair.h"

#include <gtest/gtest.h>

namespace
{

using usbguards::areComplete;
using usbguards::repairControlBlocks;
using usbguards::repairStreamingBlocks;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t interfaceBlock = 0x24;

/// A descriptor of the given length and subtype, zeros behind.
Bytes block(std::uint8_t length, std::uint8_t subtype)
{
    Bytes result(length);
    result[0] = length;
    result[1] = interfaceBlock;
    result[2] = subtype;
    return result;
}

Bytes operator+(Bytes left, const Bytes& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

bool keepsControl(Bytes sent)
{
    const Bytes before = sent;
    EXPECT_EQ(repairControlBlocks(sent, {1}), sent.size());
    EXPECT_EQ(sent[1] == 0, sent != before);
    return sent == before;
}

bool keepsStreaming(Bytes sent)
{
    const Bytes before = sent;
    EXPECT_EQ(repairStreamingBlocks(sent), sent.size());
    return sent == before;
}

TEST(DescriptorRepair, StopsWhereBlocksCannotBeToldApart)
{
    for (const int length : {0, 1, 2, 200}) {
        Bytes broken = block(9, 3);
        broken[0] = static_cast<std::uint8_t>(length);
        Bytes blocks = block(4, 4) + broken;
        EXPECT_EQ(repairControlBlocks(blocks, {1}), 4U) << length;
        EXPECT_EQ(repairStreamingBlocks(blocks), 4U) << length;
    }
    Bytes none;
    EXPECT_EQ(repairControlBlocks(none, {1}), 0U);
}

TEST(DescriptorRepair, HeaderMayOnlyNameStreamingInterfaces)
{
    Bytes header = block(13, 1);
    header[12] = 1;
    EXPECT_TRUE(keepsControl(header));
    header[12] = 2;
    EXPECT_FALSE(keepsControl(header));
    EXPECT_FALSE(keepsControl(block(11, 1)));
}

TEST(DescriptorRepair, LibuvcNeedsAHeaderACameraAndAProcessingUnit)
{
    Bytes header = block(13, 1);
    header[12] = 1;
    Bytes camera = block(15, 2);
    camera[4] = 0x01;
    camera[5] = 0x02;
    const Bytes processing = block(8, 5);
    const auto completeAfterRepair = [](Bytes blocks) {
        EXPECT_EQ(repairControlBlocks(blocks, {1}), blocks.size());
        return areComplete(blocks);
    };
    EXPECT_TRUE(completeAfterRepair(header + camera + processing));
    EXPECT_FALSE(completeAfterRepair(header + camera));
    EXPECT_FALSE(completeAfterRepair(header + processing));
    EXPECT_FALSE(completeAfterRepair(camera + processing));
    EXPECT_FALSE(completeAfterRepair(block(12, 1) + camera + processing)) << "names no interface";

    header[12] = 7;
    EXPECT_FALSE(completeAfterRepair(header + camera + processing));
    camera[4] = 0x02;
    header[12] = 1;
    EXPECT_FALSE(completeAfterRepair(header + camera + processing)) << "not a camera";
}

TEST(DescriptorRepair, SelectorUnitsAreHidden)
{
    EXPECT_FALSE(keepsControl(block(8, 4)));
    EXPECT_FALSE(keepsControl(block(3, 4)));
    EXPECT_TRUE(keepsControl(block(8, 3)));
}

TEST(DescriptorRepair, CountedControlsMustFit)
{
    Bytes camera = block(18, 2);
    camera[4] = 0x01;
    camera[5] = 0x02;
    camera[14] = 3;
    EXPECT_TRUE(keepsControl(camera));
    camera[14] = 4;
    EXPECT_FALSE(keepsControl(camera));

    Bytes processing = block(11, 5);
    processing[7] = 3;
    EXPECT_TRUE(keepsControl(processing));
    processing[7] = 4;
    EXPECT_FALSE(keepsControl(processing));

    Bytes extension = block(26, 6);
    extension[21] = 1;
    extension[23] = 2;
    EXPECT_TRUE(keepsControl(extension));
    extension[23] = 3;
    EXPECT_FALSE(keepsControl(extension));
    extension[21] = 255;
    EXPECT_FALSE(keepsControl(extension));
}

TEST(DescriptorRepair, FramesNeedAFormatBefore)
{
    Bytes frame = block(30, 5);
    frame[25] = 1;
    EXPECT_FALSE(keepsStreaming(frame));
    EXPECT_TRUE(keepsStreaming(block(27, 4) + frame));
    EXPECT_FALSE(keepsStreaming(block(26, 4) + frame));
}

TEST(DescriptorRepair, IntervalsMustFit)
{
    Bytes frame = block(34, 5);
    frame[25] = 2;
    EXPECT_TRUE(keepsStreaming(block(27, 4) + frame));
    frame[25] = 3;
    EXPECT_FALSE(keepsStreaming(block(27, 4) + frame));
}

TEST(DescriptorRepair, AContinuousRangeBecomesItsDefaultInterval)
{
    Bytes frame = block(38, 5);
    frame[21] = 0x15;
    frame[22] = 0x16;
    frame[26] = 0x99;
    Bytes blocks = block(27, 4) + frame;
    ASSERT_EQ(repairStreamingBlocks(blocks), blocks.size());
    const Bytes repaired(blocks.begin() + 27, blocks.end());
    EXPECT_EQ(repaired[25], 1);
    EXPECT_EQ(Bytes(repaired.begin() + 26, repaired.begin() + 30), (Bytes{0x15, 0x16, 0, 0}));
}

TEST(DescriptorRepair, WithoutDefaultTheShortestIntervalOfTheRangeIsTaken)
{
    Bytes frame = block(38, 5);
    frame[26] = 0x99;
    Bytes blocks = block(27, 4) + frame;
    ASSERT_EQ(repairStreamingBlocks(blocks), blocks.size());
    EXPECT_EQ(blocks[27 + 25], 1);
    EXPECT_EQ(blocks[27 + 26], 0x99);
}

} // namespace
