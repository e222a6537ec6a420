#pragma once

#include "client/recording_format.h"

/// Version 1 of the format, which is read and no longer written.
namespace zrn::recording::version1
{

using Magic = std::array<std::uint8_t, 8>;

// The first byte is no text and the line feed at the end shows a transfer in text mode.
inline constexpr Magic fileMagic = {0x89, 'Z', 'R', 'N', 'R', 'E', 'C', '\n'};
inline constexpr Magic frameMagic = {'Z', 'R', 'N', 'F', 'R', 'A', 'M', 'E'};
inline constexpr Magic tailMagic = {'Z', 'R', 'N', 'T', 'A', 'I', 'L', '\n'};

// Places of the fields; the magic stands at 0, the CRC-32 of the header at its end.
inline constexpr std::size_t headerCrcAt = blockSize - 4;

inline constexpr std::size_t versionAt = 8;
inline constexpr std::size_t metadataBytesAt = 12;

inline constexpr std::size_t positionAt = 8;
inline constexpr std::size_t arrivalAt = 16;
inline constexpr std::size_t widthAt = 24;
inline constexpr std::size_t heightAt = 28;
inline constexpr std::size_t numberAt = 32;
inline constexpr std::size_t missingAt = 36;
inline constexpr std::size_t lettersAt = 40;
inline constexpr std::size_t payloadCrcAt = 44;

inline constexpr std::size_t indexOffsetAt = 8;
inline constexpr std::size_t frameCountAt = 16;
inline constexpr std::size_t indexCrcAt = 24;

/// Whether it begins so, and its checksum holds. @param block of blockSize
bool isSealed(std::span<const std::uint8_t> block, const Magic& magic);
std::optional<FileHeader> decodeFileHeader(std::span<const std::uint8_t> block);
std::optional<FrameHeader> decodeFrameHeader(std::span<const std::uint8_t> block);
std::optional<Tail> decodeTail(std::span<const std::uint8_t> block);

} // namespace zrn::recording::version1
