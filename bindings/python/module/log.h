#pragma once

namespace zrnpy
{

/// Takes the driver's lines from now on, instead of the standard error. Those of others go where
/// they went.
void takeDriversLines();

} // namespace zrnpy
