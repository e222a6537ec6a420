#pragma once

#include "session.h"

#include <QStringList>

#include <functional>
#include <vector>

/// What a command does with a camera, and how it tells of several.
struct CameraTask {
    std::function<ExitCode(const CameraPointer&, Context&)> run;
    /// Of several cameras: whether the lines of each are shown, before the rows of all.
    bool showsLines = false;
    /// The row of one of several cameras, from its document, without its name; "done" without it.
    std::function<QString(const QJsonObject&)> row;
    /// What the last row has besides their number, from the documents of the cameras that did not
    /// fail; may be empty.
    std::function<QString(const std::vector<QJsonObject>&)> sum;
};

/// Runs the task on the camera that the options choose; on several, each on a thread of its own, so
/// that one that fails does not end the others. @return the first exit code that is not success.
/// @throws what the task throws, with one camera
ExitCode runOnCameras(Context& context, const CameraTask& task);
