#include "control/control_client.h"

#include <nlohmann/json.hpp>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace zrnsim
{

ControlClient::ControlClient(const std::string& socketPath)
    : m_socket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socketPath.c_str(), sizeof address.sun_path - 1);
    if (m_socket < 0 ||
        connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const std::system_error error(errno, std::generic_category(),
                                      "cannot connect to the control socket " + socketPath);
        close(m_socket);
        throw error;
    }
}

ControlClient ControlClient::fromEnvironment()
{
    const char* const path = std::getenv(controlVariable);
    if (path == nullptr) {
        throw std::runtime_error(std::string(controlVariable) + " is not set: not under zrnsim");
    }
    return ControlClient(path);
}

ControlClient::~ControlClient()
{
    if (m_socket >= 0) {
        close(m_socket);
    }
}

ControlClient::ControlClient(ControlClient&& other) noexcept
    : m_socket(std::exchange(other.m_socket, -1))
    , m_received(std::move(other.m_received))
{
}

nlohmann::json ControlClient::call(const nlohmann::json& request)
{
    const std::string line = request.dump() + "\n";
    for (std::size_t sent = 0; sent < line.size();) {
        const ssize_t count = send(m_socket, line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) {
            throw std::runtime_error("the control socket was closed");
        }
        sent += static_cast<std::size_t>(count);
    }
    std::size_t end = m_received.find('\n');
    while (end == std::string::npos) {
        std::array<char, 65536> block;
        const ssize_t count = recv(m_socket, block.data(), block.size(), 0);
        if (count <= 0) {
            throw std::runtime_error("the control socket was closed");
        }
        const std::size_t known = m_received.size();
        m_received.append(block.data(), static_cast<std::size_t>(count));
        end = m_received.find('\n', known);
    }
    nlohmann::json answer = nlohmann::json::parse(m_received.substr(0, end), nullptr, false);
    m_received.erase(0, end + 1);
    if (!answer.is_object()) {
        throw std::runtime_error("what answers on the control socket is not zrnsim");
    }
    return answer;
}

} // namespace zrnsim
