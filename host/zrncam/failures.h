#pragma once

#include "output.h"

#include <functional>
#include <string>

/// The library's advice, with this tool's option where it is to name another driver plugin.
QString withOption(const std::string& remedy);

/// Runs a part of a command, and makes an exception that leaves it the error of the report.
/// @return the exit code, of the command or of the error.
ExitCode reportFailures(Report& report, const std::function<ExitCode()>& run);
