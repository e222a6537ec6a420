#pragma once

#include "client/recording.h"

#include <QString>

#include <vector>

namespace zrnview
{

/// What happened while a recording was made.
struct RecordedEvent {
    enum class Kind { Setting, Outage, Other };
    Kind kind = Kind::Other;
    int position = 0;   ///< of the first frame after it, or of the last one
    double seconds = 0; ///< since the first frame
    QString text;
};

/// The events of a recording in the order in which they were noted. Settings that were in force
/// when it began are none.
std::vector<RecordedEvent> eventsOf(const zrn::Recording& recording);

} // namespace zrnview
