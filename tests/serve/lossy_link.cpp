// Carries packets between all interfaces of its network namespace but the loopback one, each to all
// others: lossy_link LOSS DELAY. It throws away that part of them and holds the others for so many
// seconds. A line "cut" on standard input cuts the link, any other mends it; its end ends the
// program.

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <random>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace
{

using Clock = std::chrono::steady_clock;

constexpr std::size_t longest = std::size_t{1} << 17; // with what the kernel says of a packet
constexpr int waiting = 1 << 24;                      // bytes that the kernel keeps for a port
constexpr int atOnce = 256;                           // packets before others have their turn

struct Packet {
    Clock::time_point due;
    std::size_t source;
    std::vector<char> bytes;
};

[[noreturn]] void fail(const char* what)
{
    std::fprintf(stderr, "lossy_link: %s: %s\n", what, std::strerror(errno));
    std::exit(1);
}

int openPort(unsigned int interface)
{
    const int port = socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, htons(ETH_P_ALL));
    const int on = 1;
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(interface);
    // With the checksums and sizes that the kernel leaves to the hardware, which there is none of.
    if (port < 0 || setsockopt(port, SOL_PACKET, PACKET_VNET_HDR, &on, sizeof on) != 0 ||
        setsockopt(port, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on) != 0 ||
        setsockopt(port, SOL_SOCKET, SO_RCVBUFFORCE, &waiting, sizeof waiting) != 0 ||
        bind(port, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        fail("a port");
    }
    return port;
}

std::vector<pollfd> openPorts()
{
    std::vector<pollfd> ports;
    struct if_nameindex* const interfaces = if_nameindex();
    for (auto* entry = interfaces; entry && entry->if_index != 0; ++entry) {
        if (std::strcmp(entry->if_name, "lo") != 0) {
            ports.push_back({openPort(entry->if_index), POLLIN, 0});
        }
    }
    if_freenameindex(interfaces);
    return ports;
}

int millisecondsUntil(Clock::time_point due)
{
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now()).count();
    return static_cast<int>(left > 0 ? left : 0);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: lossy_link LOSS DELAY\n");
        return 2;
    }
    const std::chrono::nanoseconds delay(static_cast<std::int64_t>(std::atof(argv[2]) * 1e9));
    std::bernoulli_distribution isLost(std::atof(argv[1]));
    std::mt19937 random(1);
    std::vector<pollfd> polled = openPorts();
    const std::size_t ports = polled.size();
    polled.push_back({STDIN_FILENO, POLLIN, 0});
    std::deque<Packet> held; // all for the same time, so the first one is due first
    std::vector<char> buffer(longest);
    bool isCut = false;
    std::puts("ready");
    std::fflush(stdout);
    for (;;) {
        if (poll(polled.data(), polled.size(),
                 held.empty() ? -1 : millisecondsUntil(held.front().due)) < 0 &&
            errno != EINTR) {
            fail("poll");
        }
        for (std::size_t source = 0; source < ports; ++source) {
            for (int i = 0; polled[source].revents != 0 && i < atOnce; ++i) {
                const ssize_t size = recv(polled[source].fd, buffer.data(), buffer.size(), 0);
                if (size < 0) {
                    break; // no more, or the machine at this end is gone
                }
                if (!isCut && !isLost(random)) {
                    held.push_back(
                        {Clock::now() + delay, source, {buffer.begin(), buffer.begin() + size}});
                }
            }
        }
        while (!held.empty() && held.front().due <= Clock::now()) {
            const Packet& packet = held.front();
            for (std::size_t target = 0; target < ports; ++target) {
                if (target != packet.source) {
                    // What cannot be sent is a packet more that is lost.
                    static_cast<void>(
                        send(polled[target].fd, packet.bytes.data(), packet.bytes.size(), 0));
                }
            }
            held.pop_front();
        }
        if (polled.back().revents != 0) {
            char line[16] = {};
            if (read(STDIN_FILENO, line, sizeof line - 1) <= 0) {
                return 0;
            }
            isCut = std::strcmp(line, "cut\n") == 0;
        }
    }
}
