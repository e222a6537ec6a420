#pragma once

#include <map>
#include <string>

namespace company
{

/// What belongs to the whole process, by name: signals, environment, locale, limits, threads,
/// descriptors and so on.
std::map<std::string, std::string> processState();

/// The same without what a driver needs while it works: threads, descriptors and thread keys.
std::map<std::string, std::string> lastingState();

} // namespace company
