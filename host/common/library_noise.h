#pragma once

namespace zrnhost
{

/// Keeps from the user what libuvc prints for its developers on standard error, which still takes
/// everything else.
///
/// For a program's first lines, before there are other threads.
void silenceLibuvc();

/// The same, and the driver's lines in Qt's log. The environment variable QT_LOGGING_RULES brings
/// these back.
void silenceLibraries();

} // namespace zrnhost
