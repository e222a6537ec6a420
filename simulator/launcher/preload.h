#pragma once

#include <string>

namespace zrnsim
{

/// Name under which the dynamic linker finds umockdev's preload library.
inline constexpr const char* preloadLibrary = "libumockdev-preload.so.0";

/// Whether this process runs under the preload library.
bool isPreloaded();

/// Value of LD_PRELOAD under which `program` finds the virtual devices. A sanitizer runtime that
/// the program is linked to has to come first; what LD_PRELOAD held before stays behind.
/// @param program name or path of an executable, searched for like a shell does
std::string preloadFor(const std::string& program);

} // namespace zrnsim
