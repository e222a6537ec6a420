#pragma once

#include <string>

namespace survival
{

/// Brings into the process what hosts bring in before they load the driver, as the environment
/// says: ZRN_HOST_LOADS names libraries for all, ZRN_HOST_LOADS_FOR_ITSELF libraries for nobody
/// else, ZRN_PLUGIN_HINT how Qt loads the driver, "deepbind" or "global".
void loadHostsLibraries();

/// What the driver shall say of its guards: ZRN_EXPECTED_GUARDS, or that they are in effect.
std::string expectedGuards();
/// Whether that is that there are none.
bool hasUnguardedDriver();

} // namespace survival
