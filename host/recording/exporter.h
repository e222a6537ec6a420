#pragma once

#include "common/interrupt.h"
#include "common/progress.h"
#include "recording/export_target.h"

#include <limits>

namespace zrnrec
{

/// What of a recording goes where.
struct ExportRequest {
    std::string recording;
    std::string target; ///< empty: named after the recording, in the working folder
    ExportFormat format;
    VideoCodec codec = VideoCodec::Ffv1;
    int first = 0;
    int count = std::numeric_limits<int>::max();
    int every = 1;
    char letter = 0; ///< of the images that are wanted; 0: all
};

/// What became of it.
struct ExportResult {
    int frames = 0;  ///< that are in files that stay
    int damaged = 0; ///< left out
    int without = 0; ///< left out for they have no image that is wanted
    bool isInterrupted = false;
    bool isDamagedElsewhere = false; ///< beside the frames
    std::vector<std::string> files;  ///< complete ones, or the folder
};

/// Writes what is asked for; tells damaged frames as notes. @throws zrn::Error
ExportResult exportRecording(const ExportRequest& request, const zrnhost::Interrupt& interrupt,
                             zrnhost::Progress& progress);

} // namespace zrnrec
