#pragma once

#include <chrono>

namespace usbguards
{

/// Waits until every other thread of the process has gone on from where it stands now: has been
/// seen sleeping in the kernel, has used some processor time, or has ended. A thread that was
/// interrupted between two instructions does none of that before it has executed the next ones.
/// One that sleeps in a signal handler is mistaken for one that has gone on.
/// @return false when that takes longer than @p limit.
bool waitUntilOthersHaveMoved(std::chrono::milliseconds limit);

} // namespace usbguards
