#include "usbredir/relay_server.h"

#include "control/unix_socket.h"
#include "usbredir/control_relay.h"

#include <array>
#include <poll.h>
#include <utility>

namespace zrnsim
{

RelayServer::RelayServer(const std::filesystem::path& line, std::filesystem::path server)
    : m_listener(listenOn(line))
    , m_server(std::move(server))
{
    m_thread = std::thread([this] { run(); });
}

RelayServer::~RelayServer()
{
    m_stop.raise();
    m_thread.join();
}

void RelayServer::run()
{
    std::array<pollfd, 2> events{{{m_stop.descriptor(), POLLIN, 0}, {m_listener.get(), POLLIN, 0}}};
    for (;;) {
        poll(events.data(), events.size(), -1);
        if (events[0].revents != 0) {
            return;
        }
        FileDescriptor line = acceptFrom(m_listener.get());
        if (line.isOpen()) {
            ControlRelay::nearServer(std::move(line), m_server).run(m_stop.descriptor());
        }
    }
}

} // namespace zrnsim
