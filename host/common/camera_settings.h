#pragma once

#include "client/camera.h"

#include <QByteArray>

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

/// A text that holds no settings; what() says why.
class SettingsError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Reads how a camera is set. Properties that it does not answer are left out. @throws zrn::Error
CameraSettings settingsOf(zrn::Camera& camera);

/// Sets a camera so: colour gains first, because they share controls with the properties that are
/// whole controls. @throws zrn::Error at the first that it refuses
void applySettings(const CameraSettings& settings, zrn::Camera& camera);

/// The settings as a JSON document, for people to read and change.
QByteArray toJson(const CameraSettings& settings);

/// The other way; every value is looked at. @throws SettingsError
CameraSettings settingsFromJson(const QByteArray& json);

} // namespace zrnhost
