#pragma once

#include "command.h"
#include "common/camera.h"

#include <QJsonObject>

#include <optional>

/// Settings that the commands which stream share.
struct CaptureOptions {
    std::optional<unsigned int> exposure; ///< microseconds
    std::optional<unsigned short> gain;
    std::optional<int> waitMilliseconds; ///< longest wait of one grab
    bool newest = false;                 ///< grab the newest cached frame, not the oldest
};

void addCaptureOptions(CLI::App& command, CaptureOptions& options);

/// Sets the camera up. @throws DriverError
void applyCaptureOptions(zrnhost::Camera& camera, const CaptureOptions& options);

/// What identifies a connected camera in results and image files.
struct CameraIdentity {
    QString serial; ///< as the driver gives it, with its prefix
    int sensorCount = 2;
    unsigned int width = 0;
    unsigned int height = 0;

    QString text() const;
    QJsonObject json() const;
};

/// @throws DriverError
CameraIdentity identify(zrnhost::Camera& camera);
