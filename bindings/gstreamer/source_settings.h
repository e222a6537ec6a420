#pragma once

#include "camera_controls.h"
#include "client/stream.h"

#include <array>
#include <cstddef>
#include <string>

namespace zrngst
{

/// What the user has set on a source.
struct SourceSettings {
    std::string serial; ///< empty: any
    std::string port;   ///< empty: any
    std::array<int, controlCount> controls = allUntouched();
    zrn::QueuePolicy queuePolicy = zrn::QueuePolicy::All;
    std::size_t queueSize = 16;
    std::string bayer; ///< order of the mosaic's cells, "rggb"; empty: grey
    bool reconnect = true;
    int frameCount = -1; ///< of a run, then it ends; -1: no end
};

} // namespace zrngst
