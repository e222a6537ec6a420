#pragma once

#include "client/camera.h"

#include <QByteArray>
#include <QStringList>

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>

namespace zrnhost
{

/// What a camera keeps that a user sets, as a file holds it. Settings of the driver are the
/// program's own and are not in it.
struct CameraSettings {
    std::string serial; ///< of the camera that they were read from; empty: unknown
    std::optional<std::chrono::microseconds> exposure;
    std::optional<std::uint32_t> gain;
    /// Writable properties that the camera carries, by key.
    std::map<std::string, std::int32_t> properties;
};

/// A text that holds no settings, or settings outside of a camera's ranges; what() says why.
class SettingsError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Reads how a camera is set. Properties that it does not answer are left out. @throws zrn::Error
CameraSettings settingsOf(zrn::Camera& camera);

/// Sets a camera so: colour gains first, because they share controls with the properties that are
/// whole controls. What it does not take as it is told, such as an exposure between two of its
/// steps, is in the lines that are returned.
/// @throws SettingsError when a value is outside of its range, and nothing was set
/// @throws zrn::Error at the first that it refuses, with the names of those that were set before
QStringList applySettings(const CameraSettings& settings, zrn::Camera& camera);

/// The settings as a JSON document, for people to read and change.
QByteArray toJson(const CameraSettings& settings);

/// The other way; every value is looked at. @throws SettingsError
CameraSettings settingsFromJson(const QByteArray& json);

} // namespace zrnhost
