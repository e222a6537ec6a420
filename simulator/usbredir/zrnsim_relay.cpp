// Inside a virtual machine: offers the control socket of the cameras that hang outside.

#include "control/unix_socket.h"
#include "usbredir/control_relay.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <poll.h>
#include <system_error>

namespace
{

constexpr int pollIntervalMs = 50;

zrnsim::FileDescriptor openLine(const char* path)
{
    zrnsim::FileDescriptor line(open(path, O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!line.isOpen()) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return line;
}

/// Nobody at the far end shows as a hang-up, which no poll waits out.
void waitForFarEnd(const zrnsim::FileDescriptor& line)
{
    pollfd event{line.get(), 0, 0};
    while (poll(&event, 1, 0) > 0 && (event.revents & POLLHUP) != 0) {
        poll(nullptr, 0, pollIntervalMs);
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: zrnsim-relay LINE SOCKET\n"
                             "Offers the control socket at the far end of LINE as SOCKET.\n");
        return 2;
    }
    try {
        const std::filesystem::path path = argv[2];
        std::filesystem::create_directories(path.parent_path());
        const zrnsim::FileDescriptor listener = zrnsim::listenOn(path);
        // Whoever may use the cameras' device nodes may control the cameras.
        std::filesystem::permissions(path, std::filesystem::perms::all);
        for (;;) {
            zrnsim::FileDescriptor line = openLine(argv[1]);
            waitForFarEnd(line);
            zrnsim::ControlRelay::nearClients(std::move(line), listener.get()).run(-1);
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "zrnsim-relay: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
