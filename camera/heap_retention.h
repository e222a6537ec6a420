#pragma once

#include <cstddef>

/// Lets the heap keep up to @p bytes of freed memory at its end instead of giving them back to the
/// system.
///
/// Hosts delete the images that they grabbed. When these lie at the end of the heap, the C library
/// returns them by default, and each grab pays for fresh pages: a page fault and 4 kB of zeros for
/// every 4 kB. The GNU library adapts its limits to what a process frees, and this call frees one
/// block of the right size. It allocates nothing that stays, changes no limit that the process has
/// set itself, and has no effect where the limits are wide enough. The limits are those of the
/// whole process. Any thread.
void letHeapKeep(std::size_t bytes);
