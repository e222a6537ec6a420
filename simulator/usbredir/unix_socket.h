#pragma once

#include "usbredir/file_descriptor.h"

#include <filesystem>

namespace zrnsim
{

/// A listening stream socket; a socket of that name that nobody serves any more is replaced.
/// @throws std::system_error
FileDescriptor listenOn(const std::filesystem::path& path);

/// Connects a stream socket. @throws std::system_error
FileDescriptor connectTo(const std::filesystem::path& path);

/// The next connection of a listening socket, non-blocking; not open when there is none.
FileDescriptor acceptFrom(int listener);

} // namespace zrnsim
