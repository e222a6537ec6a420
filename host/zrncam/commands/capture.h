#pragma once

#include "client/camera.h"
#include "command.h"

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

/// Sets the camera up. @throws zrn::Error
void applyCaptureOptions(zrn::Camera& camera, const CaptureOptions& options);

/// What identifies a camera in results: a line, and an entry of the document.
QString textOf(const zrn::CameraFacts& camera);
QJsonObject jsonOf(const zrn::CameraFacts& camera);
