#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace company
{

/// Where a loaded library's calls of other libraries go, and whether that may be written to.
struct LinkageTable {
    std::vector<std::uintptr_t> targets;
    std::string permissions; ///< of the first entry's page, as in /proc/self/maps

    friend bool operator==(const LinkageTable&, const LinkageTable&) = default;
};

/// The table of the library whose file name begins so; empty when it is not loaded.
LinkageTable linkageTableOf(const std::string& library);

/// Lines of /proc/self/maps that contain a text.
std::vector<std::string> mappingsWith(const std::string& text);

} // namespace company
