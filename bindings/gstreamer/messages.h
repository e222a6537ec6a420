#pragma once

#include "client/camera.h"
#include "client/error.h"
#include "client/stream.h"

#include <gst/gst.h>

namespace zrngst
{

/// Posts an error that says what went wrong and what to do about it.
void postError(GstElement* element, const zrn::Error& error);
/// The same for what the pipeline goes on without.
void postWarning(GstElement* element, const zrn::Error& error);

/// Tells of an outage: an element message "zrn-camera" whose field "event" is "lost", "refused",
/// "restarted" or "back".
void postEvent(GstElement* element, const zrn::Camera& camera, const zrn::StreamEvent& event);

/// Tells how many frames are missing before the one at @p runningTime.
void postLoss(GstElement* element, GstClockTime runningTime, GstClockTime duration,
              std::uint64_t processed, std::uint64_t missing);

/// "zrn-statistics", to be freed by the caller.
GstStructure* structureOf(const zrn::StreamCounters& counters);

/// That a camera has left, or has fallen silent.
zrn::Error outageOf(const zrn::Camera& camera, const zrn::Outage& outage);

} // namespace zrngst
