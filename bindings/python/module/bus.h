#pragma once

#include "client/driver.h"

namespace zrnpy
{

/// Takes over what a driver reads the bus with, which knows the serials of the cameras that it
/// opened. Called with the GIL, as the other one.
void useBus(const zrn::BusReaders& readers);

/// What this process reads the bus with.
zrn::BusReaders currentBus();

} // namespace zrnpy
