#pragma once

#include "transcript.h"

namespace company
{

/// Loads the other user, with libuvc and libusb behind it, unless that has happened before.
void loadOtherUser();

/// Lets the other user go through a case in this process.
Transcript runHere(const std::string& name);

} // namespace company
