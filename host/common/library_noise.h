#pragma once

namespace zrnhost
{

/// Keeps from the user what the libraries below say to their developers: the driver's lines in Qt's
/// log, and those of libuvc on standard error, which still takes everything else. The environment
/// variable QT_LOGGING_RULES brings the driver's lines back.
///
/// For a program's first lines, before there are other threads.
void silenceLibraries();

} // namespace zrnhost
