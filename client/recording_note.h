#pragma once

#include "client/frame.h"

#include <string>

namespace zrn
{

struct SettingChange;
struct StreamEvent;

/// What happened while a recording was made.
struct RecordingNote {
    FrameTimes::time_point time;
    /// An object as JSON text, whose "event" is one of:
    ///  - "setting": "key" has the value "value" from then on
    ///  - "lost": no frames come any more; "cause" is that of the Outage
    ///  - "back": they do again, after "seconds"; "missing" and "repair" are those of the Outage
    ///  - "refused": the camera did not take what was asked of it
    ///  - "restarted": the stream was stopped and started
    ///  - "camera": anything else that a host wants to be known
    std::string text;
};

RecordingNote noteOf(const SettingChange& setting);
/// Of what happened just now.
RecordingNote noteOf(const StreamEvent& event);

} // namespace zrn
