#pragma once

#include <QByteArray>

#include <array>
#include <memory>
#include <optional>
#include <span>
#include <vector>

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
namespace zrnrecording
{

inline constexpr int blockSize = 64; ///< size of each header, and alignment of every part
inline constexpr quint32 formatVersion = 1;
inline constexpr int imageTrailerBytes = 8; ///< bytes behind the pixels of each image
inline constexpr std::size_t maximumImages = 2;
/// Bytes of an image with its trailer: far more than any camera sends, and few enough for the
/// containers that images and pictures are held in.
inline constexpr quint64 maximumImageBytes = quint64{1} << 30;
/// Bytes of the JSON text that a recording begins with.
inline constexpr quint32 maximumMetadataBytes = 16U * 1024 * 1024;

using Block = std::array<unsigned char, blockSize>;

/// One image of a frame: width x height bytes of pixels, then the trailer of 8 bytes.
struct Image {
    char letter = 'A'; ///< 'A' or 'B'
    QByteArray data;
};

/// One frame, as recorded.
struct Frame {
    qint32 width = 0;    ///< pixels in a row of each image
    qint32 height = 0;   ///< rows of each image
    quint32 number = 0;  ///< frame number, completed by the recording host
    quint32 missing = 0; ///< frame numbers skipped since the frame before
    /// On any clock that does not jump; in a recording, since its first frame.
    qint64 arrivalNanoseconds = 0;
    std::vector<Image> images; ///< one or two
    /// Of images whose data are not their own.
    std::shared_ptr<const void> memory;
};

/// What the header of a frame says.
struct FrameHeader {
    quint64 position = 0; ///< of the frame in the recording, from 0
    qint32 width = 0;
    qint32 height = 0;
    quint32 number = 0;
    quint32 missing = 0;
    qint64 arrivalNanoseconds = 0;
    std::array<char, maximumImages> letters{}; ///< 0 where there is no image
    quint32 payloadCrc = 0;                    ///< CRC-32 of the images, one behind the other

    int imageCount() const { return letters[1] == 0 ? 1 : 2; }
    quint64 imageBytes() const;
    quint64 payloadBytes() const { return imageBytes() * static_cast<quint64>(imageCount()); }
};

/// Where the index of a closed recording lies.
struct Tail {
    quint64 indexOffset = 0;
    quint64 frameCount = 0;
    quint32 indexCrc = 0; ///< CRC-32 of the offsets
};

/// Rounds up to the next multiple of blockSize.
quint64 padded(quint64 bytes);

/// @param metadataBytes length of the JSON text with its padding
Block encodeFileHeader(quint32 metadataBytes);
/// @return length of the metadata, or nothing when this is no recording of a known version or the
/// length is impossible.
std::optional<quint32> decodeFileHeader(const Block& block);

Block encodeFrameHeader(const FrameHeader& header);
/// @return nothing when the block is no whole frame header, or one with impossible sizes.
std::optional<FrameHeader> decodeFrameHeader(const Block& block);

Block encodeTail(const Tail& tail);
std::optional<Tail> decodeTail(const Block& block);

/// CRC-32 of the images of @p frame, one behind the other.
quint32 payloadCrc(const Frame& frame);
/// CRC-32 of @p bytes, continuing @p before.
quint32 crcOf(std::span<const unsigned char> bytes, quint32 before = 0);

} // namespace zrnrecording
