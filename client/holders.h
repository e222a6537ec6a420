#pragma once

#include "client/bus.h"

#include <string>
#include <vector>

namespace zrn
{

/// The processes that have a device node open, for each of several.
///
/// A process counts that has the very node open, under its name or in another root folder; the
/// files of other users' processes are seen by root alone.
///
/// @param root put before /proc and before each of @p nodes
/// @return as many lists as there are nodes, each in the order of the process ids
std::vector<std::vector<Holder>> findHolders(const std::string& root,
                                             const std::vector<std::string>& nodes);

} // namespace zrn
