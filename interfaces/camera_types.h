#pragma once

#include <QByteArray>
#include <QtGlobal>

namespace CameraSpace
{

/// Pixel format of the packed frame. The low byte is the number of bits per pixel position.
enum class PixelFormatType : quint32 {
    Mono8 = 0x108,    ///< 264: one byte for each position, double sensor of 1308 x 1991
    Packed16 = 0x110, ///< 272: two bytes for each position, one for each of two images
    Double8 = 0x208,  ///< 520: one byte for each position, double sensor of 640 x 960
};

/// Which cached frame a grab takes. Zero takes the newest and drops the older ones, any other value
/// takes the oldest.
enum class TriggerMode : quint32 {
    Newest = 0,
    Oldest = 2,
};

/// One unpacked image. The receiver of a grab owns it and deletes it.
struct ImageBlock {
    qint32 type = 0;         ///< always 0
    qint32 width = 0;        ///< pixels in a row
    qint32 height = 0;       ///< rows
    qint32 bitsPerPixel = 0; ///< 8

    /// width x height bytes of pixels, rows from top to bottom without padding, then the 8-byte
    /// trailer of the frame: its bytes 2 to 5, each sign-extended, as a 64-bit number in the
    /// machine's byte order.
    QByteArray data;
};

} // namespace CameraSpace
