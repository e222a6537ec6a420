#pragma once

#include "control/command_processor.h"

#include <string>
#include <vector>

namespace zrnsim
{

/// One line of a script: a command of the control socket and when it runs.
struct ScriptStep {
    double at = 0;       ///< seconds after the start of the command
    std::string request; ///< a line of the control socket
};

/// Reads a script: JSON objects, one a line, each with "at" beside its command. Empty lines and
/// lines that begin with # are skipped.
/// @throws ConfigError with the number of the line that is wrong
std::vector<ScriptStep> readScript(const std::string& path, const CommandProcessor& processor);

/// Runs each step at its time on the default main context; what fails is said on standard error.
void scheduleScript(const std::vector<ScriptStep>& steps, CommandProcessor& processor);

} // namespace zrnsim
