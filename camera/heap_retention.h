#pragma once

#include <cstddef>

// Hosts delete the images that they grabbed. When these lie at the end of the heap, the C library
// returns them to the system, and the next grab pays for fresh pages: a page fault and 4 kB of
// zeros for every 4 kB, as much work again as all of libuvc, libusb and the driver. What stands
// here helps hosts that read and hosts that change their images alike, because blocks and arrays
// stay ordinary ones that any thread may delete at any time.

/// Lets the heap keep up to @p bytes of freed memory at its end instead of giving them back to the
/// system, unless the process locks its memory.
///
/// The limits are those of the whole process. The GNU library adapts them to what a process frees;
/// this call frees one block of the right size, as the host might have done, so it changes no limit
/// that the process has set itself and no limit that is wide enough. The library adapts up to 64
/// MB. Nothing stays allocated. Any thread.
void letHeapKeep(std::size_t bytes);

/// Whether the process has all that it maps put into memory at once (mlockall with MCL_FUTURE, not
/// with MCL_ONFAULT). Any thread.
bool isNewMemoryLocked();
