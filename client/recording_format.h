#pragma once

#include "client/frame.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

/// The bytes of a recording. All numbers are little-endian.
///
///     file header   64 bytes, then the metadata as JSON text, padded with blanks
///     frame         64 bytes of header, then the images as the driver delivered them, padded
///     frame         ...
///     index         the offset of every frame, 8 bytes each, padded
///     tail          64 bytes: where the index lies
///
/// Every part starts at a multiple of 64. A file whose writer was cut off has no index and no tail;
/// its frames are found one after the other, up to the first that is not whole.
namespace zrn::recording
{

inline constexpr std::size_t blockSize = 64; ///< size of each header, and alignment of every part
inline constexpr std::uint32_t formatVersion = 1;
/// Bytes of an image with its trailer: far more than any camera sends, and few enough for the
/// containers that images and pictures are held in.
inline constexpr std::uint64_t maximumImageBytes = std::uint64_t{1} << 30;
/// Bytes of the JSON text that a recording begins with.
inline constexpr std::uint32_t maximumMetadataBytes = 16U * 1024 * 1024;

using Block = std::array<std::uint8_t, blockSize>;

/// What the header of a frame says.
struct FrameHeader {
    std::uint64_t position = 0; ///< of the frame in the recording, from 0
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t number = 0;
    std::uint32_t missing = 0;
    std::int64_t arrivalNanoseconds = 0; ///< since the first frame of the recording
    /// 0 where there is no image.
    std::array<char, Frame::mostImages> letters{};
    std::uint32_t payloadCrc = 0; ///< CRC-32 of the images, one behind the other

    [[nodiscard]] std::size_t imageCount() const { return letters[1] == 0 ? 1 : 2; }
    [[nodiscard]] std::uint64_t imageBytes() const;
    [[nodiscard]] std::uint64_t payloadBytes() const { return imageBytes() * imageCount(); }
};

/// Where the index of a closed recording lies.
struct Tail {
    std::uint64_t indexOffset = 0;
    std::uint64_t frameCount = 0;
    std::uint32_t indexCrc = 0; ///< CRC-32 of the offsets
};

/// Rounds up to the next multiple of blockSize.
std::uint64_t padded(std::uint64_t bytes);

/// @param metadataBytes length of the JSON text with its padding
Block encodeFileHeader(std::uint32_t metadataBytes);
/// @return length of the metadata, or nothing when this is no recording of a known version or the
/// length is impossible.
std::optional<std::uint32_t> decodeFileHeader(const Block& block);

Block encodeFrameHeader(const FrameHeader& header);
/// @return nothing when the block is no whole frame header, or one with impossible sizes.
std::optional<FrameHeader> decodeFrameHeader(const Block& block);

Block encodeTail(const Tail& tail);
std::optional<Tail> decodeTail(const Block& block);

/// CRC-32 of the images of @p frame, one behind the other.
std::uint32_t payloadCrc(const Frame& frame);

/// An entry of the index.
using IndexEntry = std::array<std::uint8_t, sizeof(std::uint64_t)>;
IndexEntry encodeOffset(std::uint64_t offset);
std::uint64_t decodeOffset(const IndexEntry& entry);

} // namespace zrn::recording
