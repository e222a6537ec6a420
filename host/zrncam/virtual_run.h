#pragma once

#include <QString>

#include <string>
#include <vector>

/// Whether this process was started by runOnVirtualCameras().
bool onVirtualCameras();

/// Replaces this process by zrnsim, which runs the same command line on virtual cameras.
///
/// @param models one for each camera, as zrnsim's --camera takes them; an empty text is the default
/// model. @param arguments this process's own, program name included.
/// @throws ToolError when zrnsim cannot be run
[[noreturn]] void runOnVirtualCameras(const std::vector<std::string>& models,
                                      const std::vector<std::string>& arguments);
