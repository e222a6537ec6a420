#pragma once

#include <cstdint>
#include <string>

namespace zrn
{

/// A stretch of a stream without frames, and how it ended.
struct Outage {
    enum class Cause {
        Silent, ///< the camera answered, but sent nothing
        Gone,   ///< the camera did not answer
    };
    enum class Repair {
        None,        ///< the stream ended first, or frames came again by themselves
        Restarted,   ///< stopping and starting the stream helped
        Reconnected, ///< the camera was opened and connected again
    };

    double begin = 0.0;   ///< seconds into the stream: the last frame before
    double seconds = 0.0; ///< until the next frame, or the end of the stream
    Cause cause = Cause::Silent;
    Repair repair = Repair::None;
    std::uint64_t missing = 0; ///< frame numbers skipped; 0 when the camera began to count anew
    bool isRenumbered = false; ///< the camera began to count anew
    /// Whether `missing` is all of them: the outage was too short to lose more frames than the
    /// trailers of two can tell, and frames came before and after it.
    bool isMissingExact = false;

    /// "at 3.21 s for 1.50 s: gone, repair: reconnected, 12 frames missing".
    [[nodiscard]] std::string text() const;
};

/// "silent", "gone".
const char* nameOf(Outage::Cause cause);
/// "none", "restarted", "reconnected".
const char* nameOf(Outage::Repair repair);

} // namespace zrn
