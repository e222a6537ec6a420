#pragma once

#include "client/camera.h"
#include "command.h"
#include "common/frame_pipe.h"

#include <QJsonObject>

#include <memory>
#include <optional>
#include <vector>

/// Settings that the commands which stream share.
struct CaptureOptions {
    std::optional<unsigned int> exposure; ///< microseconds
    std::optional<unsigned short> gain;
    std::optional<int> waitMilliseconds; ///< longest wait of one grab
    bool newest = false;                 ///< grab the newest cached frame, not the oldest
};

/// The frames on standard output, where the command sends them there; null otherwise. @throws
/// ToolError when only a pipe takes this format
/// @param camera outlives the pipe
std::unique_ptr<zrnhost::FramePipe> makePipe(const Context& context, zrn::Camera& camera,
                                             bool isY4m);

/// @throws ToolError when a frame could not be written
void checkPipe(const zrnhost::FramePipe& pipe);

void addY4mOption(CLI::App& command, bool& value);

/// Exposure, gain and wait.
void addSettingOptions(CLI::App& command, CaptureOptions& options);
/// These, and the order of the frames.
void addCaptureOptions(CLI::App& command, CaptureOptions& options);

/// Sets the camera up. @throws zrn::Error
void applyCaptureOptions(zrn::Camera& camera, const CaptureOptions& options);

/// What identifies a camera in results: a line, and an entry of the document.
QString textOf(const zrn::CameraFacts& camera);
QJsonObject jsonOf(const zrn::CameraFacts& camera);

/// "8 frames, 3 missing".
QString framesText(qint64 frames, qint64 missing);
/// The same of the documents of several cameras.
QString framesSum(const std::vector<QJsonObject>& cameras);
