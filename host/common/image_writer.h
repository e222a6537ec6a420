#pragma once

#include "camera_types.h"

#include <QString>

#include <utility>
#include <vector>

namespace zrnhost
{

/// Keyword and text, in the order in which they are written.
using ImageTexts = std::vector<std::pair<QString, QString>>;

/// Writes a well-formed block as an 8-bit greyscale PNG. Replaces a file of that name only once the
/// picture is complete.
///
/// @param texts stored as text chunks, readable by any PNG tool.
/// @return empty, or why it failed.
QString writePng(const QString& path, const CameraSpace::ImageBlock& block,
                 const ImageTexts& texts);

/// Writes the bytes of a block as the driver delivered them: width x height pixels, then the 8-byte
/// trailer. @return empty, or why it failed.
QString writeRaw(const QString& path, const CameraSpace::ImageBlock& block);

} // namespace zrnhost
