#pragma once

#include "checks/images.h"
#include "client/camera_object.h"
#include "client/driver_plugin.h"
#include "client/property_keys.h"

#include <ostream>
#include <string>

/// The plugin that the build made.
inline const std::string builtPlugin = ZRN_PLUGIN_PATH;

/// Milliseconds, for grabs that must not fail because the machine is busy.
inline constexpr int patientGrabMs = 20'000;

/// What one grab gave.
struct Grab {
    ErrorCode result;
    ContractSpace::Images images;
};
inline Grab grabFrom(zrn::CameraObject& camera)
{
    Grab grab;
    grab.result = ContractSpace::grab(*camera, grab.images);
    return grab;
}

/// Result codes are compared by their enumerators and printed as their numbers.
inline void PrintTo(ErrorCode result, std::ostream* stream)
{
    *stream << static_cast<quint32>(result);
}
