#pragma once

#include "common/camera.h"
#include "common/driver_plugin.h"
#include "common/image_blocks.h"
#include "common/property_keys.h"

#include <ostream>

/// The plugin that the build made.
inline const QString builtPlugin = QStringLiteral(ZRN_PLUGIN_PATH);

/// Milliseconds, for grabs that must not fail because the machine is busy.
inline constexpr int patientGrabMs = 20'000;

/// What one grab gave.
struct Grab {
    ErrorCode result;
    zrnhost::ImageBlocks images;
};
inline Grab grabFrom(zrnhost::Camera& camera)
{
    Grab grab;
    grab.result = zrnhost::grab(*camera, grab.images);
    return grab;
}

/// Result codes are compared by their enumerators and printed as their numbers.
inline void PrintTo(ErrorCode result, std::ostream* stream)
{
    *stream << static_cast<quint32>(result);
}
