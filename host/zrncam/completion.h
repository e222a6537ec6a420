#pragma once

#include "command_line.h"

#include <string>
#include <vector>

/// The word of the command line that asks for completions: `zrncam __complete WORD...`.
inline constexpr const char* completionCommand = "__complete";

/// What may stand in place of the last of @p words, of which the others come before it.
///
/// Words with their descriptions, a tab between, that begin with the last word; or ":files" or
/// ":folders", for which the shell knows better. No camera is opened.
std::vector<std::string> completionsFor(const CommandDescription& program,
                                        const std::vector<std::string>& words);
