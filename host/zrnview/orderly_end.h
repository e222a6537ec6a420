#pragma once

namespace zrnview
{

/// Ends Qt's event loop on SIGINT, SIGTERM and SIGHUP, as closing the window does, so that
/// recordings are finished. To be called once, after the application object was made.
void endOrderlyOnSignals();

} // namespace zrnview
