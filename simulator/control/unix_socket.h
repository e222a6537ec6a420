#pragma once

#include "control/file_descriptor.h"

#include <filesystem>
#include <sys/socket.h>

namespace zrnsim
{

/// A listening stream socket, non-blocking; a socket of that name that nobody serves any more is
/// replaced.
/// @throws std::system_error
FileDescriptor listenOn(const std::filesystem::path& path);

/// Connects a stream socket. @param flags of socket(). @throws std::system_error
FileDescriptor connectTo(const std::filesystem::path& path, int flags = SOCK_NONBLOCK);

/// The next connection of a listening socket, non-blocking; not open when there is none.
FileDescriptor acceptFrom(int listener);

} // namespace zrnsim
