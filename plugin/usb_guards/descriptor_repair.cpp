#include "descriptor_repair.h"

#include <algorithm>

namespace usbguards
{
namespace
{

// Offsets shared by all class-specific descriptors, and the values that make libuvc skip one.
constexpr std::size_t typeOffset = 1;
constexpr std::size_t subtypeOffset = 2;
constexpr std::size_t smallestBlock = 3;
constexpr std::size_t headerSize = 12; ///< of a control header, the interface numbers follow
constexpr std::uint8_t interfaceType = 0x24;
constexpr std::uint8_t undefinedType = 0;
constexpr std::uint8_t undefinedStreamingSubtype = 0;

enum ControlSubtype : std::uint8_t {
    controlHeader = 1,
    inputTerminal = 2,
    selectorUnit = 4,
    processingUnit = 5,
    extensionUnit = 6,
};

enum StreamingSubtype : std::uint8_t {
    inputHeader = 1,
    uncompressedFormat = 4,
    uncompressedFrame = 5,
    mjpegFormat = 6,
    mjpegFrame = 7,
    frameBasedFormat = 16,
    frameBasedFrame = 17,
};

/// Splits off the next descriptor; an empty one when its length is impossible.
DescriptorBlocks nextBlock(DescriptorBlocks rest)
{
    if (rest.size() < smallestBlock || rest[0] < smallestBlock || rest[0] > rest.size()) {
        return {};
    }
    return rest.first(rest[0]);
}

/// Whether a descriptor holds a one-byte count at @p offset and then so many bytes.
bool holdsCounted(DescriptorBlocks block, std::size_t offset)
{
    return block.size() > offset && block.size() > offset + block[offset];
}

bool isSoundHeader(DescriptorBlocks block, const std::vector<std::uint8_t>& streamingInterfaces)
{
    if (block.size() < headerSize) {
        return false;
    }
    return std::ranges::all_of(block.subspan(headerSize), [&](std::uint8_t position) {
        return std::ranges::find(streamingInterfaces, position) != streamingInterfaces.end();
    });
}

/// @param block an input terminal of full size.
bool isCamera(DescriptorBlocks block)
{
    constexpr std::size_t terminalTypeOffset = 4;
    constexpr unsigned cameraTerminal = 0x0201;
    return (block[terminalTypeOffset] | block[terminalTypeOffset + 1] << 8U) == cameraTerminal;
}

bool isSoundInputTerminal(DescriptorBlocks block)
{
    constexpr std::size_t fixedSize = 8;
    constexpr std::size_t controlSizeOffset = 14;
    return block.size() >= fixedSize &&
           (!isCamera(block) || holdsCounted(block, controlSizeOffset));
}

bool isSoundExtensionUnit(DescriptorBlocks block)
{
    constexpr std::size_t inputCountOffset = 21;
    return holdsCounted(block, inputCountOffset) &&
           holdsCounted(block, inputCountOffset + 1 + block[inputCountOffset]);
}

bool isSoundControlBlock(DescriptorBlocks block,
                         const std::vector<std::uint8_t>& streamingInterfaces)
{
    constexpr std::size_t processingControlSizeOffset = 7;
    switch (block[subtypeOffset]) {
    case controlHeader:
        return isSoundHeader(block, streamingInterfaces);
    case inputTerminal:
        return isSoundInputTerminal(block);
    case selectorUnit:
        return false; // libuvc forgets to free what it notes of it; the driver uses none
    case processingUnit:
        return holdsCounted(block, processingControlSizeOffset);
    case extensionUnit:
        return isSoundExtensionUnit(block);
    default:
        return true;
    }
}

/// Where a frame descriptor has its interval count and its default interval.
struct FrameLayout {
    std::size_t countOffset;
    std::size_t defaultOffset;
};

constexpr std::size_t firstIntervalOffset = 26;
constexpr std::size_t intervalSize = 4;

bool isSoundFrame(DescriptorBlocks block, const FrameLayout& layout)
{
    // A continuous range is a minimum, a maximum and a step.
    constexpr std::size_t rangeIntervals = 3;
    if (block.size() < firstIntervalOffset) {
        return false;
    }
    const std::size_t count = block[layout.countOffset];
    return block.size() >=
           firstIntervalOffset + intervalSize * (count == 0 ? rangeIntervals : count);
}

void makeDiscrete(DescriptorBlocks block, const FrameLayout& layout)
{
    if (block[layout.countOffset] != 0) {
        return;
    }
    const auto standard = block.subspan(layout.defaultOffset, intervalSize);
    if (std::ranges::any_of(standard, [](std::uint8_t byte) { return byte != 0; })) {
        std::ranges::copy(standard, block.subspan(firstIntervalOffset).begin());
    } // else the range's minimum stands there already
    block[layout.countOffset] = 1;
}

bool repairStreamingBlock(DescriptorBlocks block, bool& hasFormat)
{
    constexpr std::size_t inputHeaderSize = 9;
    constexpr std::size_t uncompressedFormatSize = 27;
    constexpr std::size_t mjpegFormatSize = 11;
    constexpr std::size_t frameBasedFormatSize = 28;
    constexpr FrameLayout plainFrame = {25, 21};
    constexpr FrameLayout frameBased = {21, 17};

    const std::uint8_t subtype = block[subtypeOffset];
    switch (subtype) {
    case inputHeader:
        return block.size() >= inputHeaderSize;
    case uncompressedFormat:
    case mjpegFormat:
    case frameBasedFormat: {
        const std::size_t needed = subtype == uncompressedFormat ? uncompressedFormatSize
                                   : subtype == mjpegFormat      ? mjpegFormatSize
                                                                 : frameBasedFormatSize;
        hasFormat = hasFormat || block.size() >= needed;
        return block.size() >= needed;
    }
    case uncompressedFrame:
    case mjpegFrame:
    case frameBasedFrame: {
        const FrameLayout& layout = subtype == frameBasedFrame ? frameBased : plainFrame;
        if (!hasFormat || !isSoundFrame(block, layout)) {
            return false;
        }
        makeDiscrete(block, layout);
        return true;
    }
    default:
        return true;
    }
}

} // namespace

std::size_t repairControlBlocks(DescriptorBlocks blocks,
                                const std::vector<std::uint8_t>& streamingInterfaces)
{
    DescriptorBlocks rest = blocks;
    for (DescriptorBlocks block = nextBlock(rest); !block.empty(); block = nextBlock(rest)) {
        if (!isSoundControlBlock(block, streamingInterfaces)) {
            block[typeOffset] = undefinedType;
        }
        rest = rest.subspan(block.size());
    }
    return blocks.size() - rest.size();
}

bool areComplete(DescriptorBlocks blocks)
{
    bool hasHeader = false;
    bool hasCamera = false;
    bool hasProcessing = false;
    for (DescriptorBlocks block = nextBlock(blocks); !block.empty(); block = nextBlock(blocks)) {
        if (block[typeOffset] == interfaceType) {
            const std::uint8_t subtype = block[subtypeOffset];
            hasHeader |= subtype == controlHeader && block.size() > headerSize;
            hasCamera |= subtype == inputTerminal && isCamera(block);
            hasProcessing |= subtype == processingUnit;
        }
        blocks = blocks.subspan(block.size());
    }
    return hasHeader && hasCamera && hasProcessing;
}

std::size_t repairStreamingBlocks(DescriptorBlocks blocks)
{
    bool hasFormat = false;
    DescriptorBlocks rest = blocks;
    for (DescriptorBlocks block = nextBlock(rest); !block.empty(); block = nextBlock(rest)) {
        if (!repairStreamingBlock(block, hasFormat)) {
            block[subtypeOffset] = undefinedStreamingSubtype;
        }
        rest = rest.subspan(block.size());
    }
    return blocks.size() - rest.size();
}

} // namespace usbguards
