#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace zrnsim
{

/// Blocks the signals that are forwarded to the command and returns a descriptor that reports
/// them. To be called before any thread is started. @throws std::system_error
int forwardableSignals();

/// Starts a command with its own environment and the default signal handling.
/// @param environment "NAME=value" entries that replace those of this process
/// @throws std::system_error when the command cannot be started
pid_t startCommand(const std::vector<std::string>& command,
                   const std::vector<std::string>& environment);

/// Exit status of a finished process as a shell gives it: 128 plus the signal that ended it.
int exitStatus(int waitStatus);

} // namespace zrnsim
