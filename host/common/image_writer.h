#pragma once

#include "client/frame.h"

#include <QString>

#include <utility>
#include <vector>

namespace zrnhost
{

/// Keyword and text, in the order in which they are written.
using ImageTexts = std::vector<std::pair<QString, QString>>;

/// Writes an image as an 8-bit greyscale PNG. Replaces a file of that name only once the
/// picture is complete.
///
/// @param width,height in pixels @param texts stored as text chunks, readable by any PNG tool.
/// @return empty, or why it failed.
QString writePng(const QString& path, const zrn::Image& image, std::uint32_t width,
                 std::uint32_t height, const ImageTexts& texts);

/// Writes the bytes of an image as the driver delivered them: its pixels, then the 8-byte trailer.
/// @return empty, or why it failed.
QString writeRaw(const QString& path, const zrn::Image& image);

} // namespace zrnhost
