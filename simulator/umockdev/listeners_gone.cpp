// libumockdev up to 0.18.3 ends the process when a program closes its device monitor between the
// two calls by which an event is sent to it: sendmsg() refuses what connect() still allowed.
// Cameras must outlive who watches them, so the libraries of the virtual camera find this sendmsg()
// first. Nobody misses an event that nobody listens for.

#include <cerrno>
#include <cstddef>
#include <dlfcn.h>
#include <span>
#include <sys/socket.h>

extern "C" __attribute__((visibility("default"))) ssize_t sendmsg(int socket, const msghdr* message,
                                                                  int flags)
{
    using Send = ssize_t (*)(int, const msghdr*, int);
    static const auto send = reinterpret_cast<Send>(dlsym(RTLD_NEXT, "sendmsg"));
    const ssize_t sent = send(socket, message, flags);
    if (sent >= 0 || errno != ECONNREFUSED) {
        return sent;
    }
    std::size_t size = 0;
    for (const iovec& part : std::span(message->msg_iov, message->msg_iovlen)) {
        size += part.iov_len;
    }
    return static_cast<ssize_t>(size);
}
