#pragma once

#include "client/frame.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

/// The bytes of a recording: docs/recording-format.md. All numbers are little-endian, and every
/// part starts at a multiple of 64.
namespace zrn::recording
{

/// Size of the file's header and its tail, and alignment of every part.
inline constexpr std::size_t blockSize = 64;
inline constexpr int writtenVersion = 2;
/// Bytes of an image with its trailer: far more than any camera sends, and few enough for the
/// containers that images and pictures are held in.
inline constexpr std::uint64_t maximumImageBytes = std::uint64_t{1} << 30;
/// Bytes of the JSON text that a recording begins with.
inline constexpr std::uint32_t maximumMetadataBytes = 16U * 1024 * 1024;
/// Times of CLOCK_MONOTONIC are smaller, either way: nanoseconds of 36 years, so that differences
/// of any two can be told.
inline constexpr std::int64_t maximumMonotonic = std::int64_t{1} << 60;

using Block = std::array<std::uint8_t, blockSize>;

struct FileHeader {
    int version = writtenVersion;
    std::uint32_t metadataBytes = 0; ///< length of the JSON text with its padding
    std::uint64_t metadataHash = 0;  ///< XXH3-64 of it; 0 in version 1
};

/// What the header of a frame says.
struct FrameHeader {
    std::uint64_t position = 0; ///< of the frame in the recording, from 0
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t number = 0;
    std::uint32_t missing = 0;
    /// On CLOCK_MONOTONIC; in version 1 since the first frame of the recording.
    std::int64_t arrivalNanoseconds = 0;
    /// 0 where there is no image.
    std::array<char, Frame::mostImages> letters{};

    std::uint32_t payloadCrc = 0; ///< version 1: CRC-32 of the images, one behind the other

    // From version 2 on.
    std::array<std::uint64_t, Frame::mostImages> imageHashes{}; ///< XXH3-64 of each
    FrameTimes times;
    std::chrono::nanoseconds wait{};
    std::chrono::microseconds exposure{};
    std::uint32_t gain = 0;
    std::uint32_t dropped = 0;

    [[nodiscard]] std::size_t imageCount() const { return letters[1] == 0 ? 1 : 2; }
    [[nodiscard]] std::uint64_t imageBytes() const;
    [[nodiscard]] std::uint64_t payloadBytes() const { return imageBytes() * imageCount(); }
    /// Whether a camera can have sent such a frame.
    [[nodiscard]] bool isPossible() const;
};

/// What a frame's header carries of the notes.
struct NoteChunk {
    std::span<const std::uint8_t> bytes;
    std::size_t firstRecord = 0; ///< where the first one begins; their end when none does
};

/// Where index and notes of a closed recording lie.
struct Tail {
    std::uint64_t indexOffset = 0;
    std::uint64_t frameCount = 0;
    std::uint64_t indexHash = 0; ///< of the offsets: XXH3-64; CRC-32 in version 1
    // From version 2 on.
    std::uint64_t notesOffset = 0;
    std::uint64_t notesBytes = 0;
    std::uint64_t notesHash = 0; ///< XXH3-64
};

/// Rounds up to the next multiple of blockSize.
std::uint64_t padded(std::uint64_t bytes);

/// Size of the header of each frame.
std::size_t frameHeaderBytes(int version);
/// Checksum of what the tail points to.
std::uint64_t hashOf(int version, std::span<const std::uint8_t> bytes);

/// Whether it begins as the header of a recording does, but is not as any version wrote it.
bool isDamagedFileHeader(const Block& block);
Block encodeFileHeader(const FileHeader& header);
/// @return nothing when this is no recording of a known version or the length is impossible.
std::optional<FileHeader> decodeFileHeader(const Block& block);

inline constexpr std::size_t frameHeaderBytes2 = 512;
inline constexpr std::size_t noteChunkBytes = 376; ///< room for notes in the header of a frame
using FrameBlock = std::array<std::uint8_t, frameHeaderBytes2>;

/// @param notes at most noteChunkBytes
FrameBlock encodeFrameHeader(const FrameHeader& header, const NoteChunk& notes = {});
/// Whether @p bytes, at least 8, begin as the header of a frame does.
bool isMarkedAsFrame(int version, std::span<const std::uint8_t> bytes);
/// @param bytes as many as frameHeaderBytes() says
/// @return nothing when they are no whole frame header, or one with impossible sizes.
std::optional<FrameHeader> decodeFrameHeader(int version, std::span<const std::uint8_t> bytes);
/// The notes in a header that could be decoded, of version 2.
NoteChunk notesOf(std::span<const std::uint8_t> header);

Block encodeTail(const Tail& tail);
std::optional<Tail> decodeTail(int version, const Block& block);

/// An entry of the index.
using IndexEntry = std::array<std::uint8_t, sizeof(std::uint64_t)>;
IndexEntry encodeOffset(std::uint64_t offset);
std::uint64_t decodeOffset(const IndexEntry& entry);

} // namespace zrn::recording
