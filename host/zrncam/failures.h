#pragma once

#include "output.h"

#include <functional>

/// Runs a part of a command, and makes an exception that leaves it the error of the report.
/// @return the exit code, of the command or of the error.
ExitCode reportFailures(Report& report, const std::function<ExitCode()>& run);
