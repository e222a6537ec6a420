#pragma once

#include "client/recording_session.h"
#include "commands/capture.h"

#include <optional>
#include <string>

/// What the command line asks for.
struct RecordOptions {
    std::string folder = ".";
    std::string name = "recording";
    std::optional<double> seconds;
    std::optional<int> frames;
    std::string segment;
    std::optional<double> before; ///< seconds; frames are recorded around triggers
    int sets = 0;
    std::string memory;
    CaptureOptions capture;
};

void addRecordOptions(CLI::App& command, RecordOptions& options);

/// @throws ToolError when they do not go together
zrn::RecordingPlan planOf(const RecordOptions& options);
