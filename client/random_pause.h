#pragma once

namespace zrn
{

/// Waits for some hundredths of a second: long enough for two programs that met at a camera to miss
/// each other the next time. Thread-safe.
void pauseAtRandom();

} // namespace zrn
