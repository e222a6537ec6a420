#pragma once

#include "client/findings.h"

namespace zrn
{

/// Asks the libraries that the dynamic linker finds, as the plugin will get them.
LibraryVersions loadedLibraryVersions();

} // namespace zrn
