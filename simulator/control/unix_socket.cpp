#include "control/unix_socket.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>

namespace zrnsim
{

namespace
{

[[noreturn]] void fail(const char* action, const std::filesystem::path& path, int error)
{
    throw std::system_error(error, std::generic_category(),
                            std::string(action) + " " + path.string());
}

sockaddr_un addressOf(const std::filesystem::path& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.native().size() >= sizeof address.sun_path) {
        fail("cannot use", path, ENAMETOOLONG);
    }
    std::memcpy(address.sun_path, path.c_str(), path.native().size());
    return address;
}

FileDescriptor newSocket(const std::filesystem::path& path, int flags)
{
    FileDescriptor fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
    if (!fd.isOpen()) {
        fail("cannot make a socket for", path, errno);
    }
    return fd;
}

} // namespace

FileDescriptor listenOn(const std::filesystem::path& path)
{
    const sockaddr_un address = addressOf(path);
    FileDescriptor fd = newSocket(path, SOCK_NONBLOCK);
    std::filesystem::remove(path);
    if (bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(fd.get(), SOMAXCONN) != 0) {
        fail("cannot listen on", path, errno);
    }
    return fd;
}

FileDescriptor connectTo(const std::filesystem::path& path, int flags)
{
    const sockaddr_un address = addressOf(path);
    FileDescriptor fd = newSocket(path, flags);
    if (connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        fail("cannot connect to the control socket", path, errno);
    }
    return fd;
}

FileDescriptor acceptFrom(int listener)
{
    return FileDescriptor(accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
}

} // namespace zrnsim
