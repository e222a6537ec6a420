#include "control/control_client.h"

#include "control/unix_socket.h"

#include <nlohmann/json.hpp>

#include <array>
#include <cstdlib>
#include <stdexcept>
#include <sys/socket.h>

namespace zrnsim
{

ControlClient::ControlClient(const std::string& socketPath)
    : m_socket(connectTo(socketPath, 0))
{
}

ControlClient ControlClient::fromEnvironment()
{
    const char* const path = std::getenv(controlVariable);
    if (path == nullptr) {
        throw std::runtime_error(std::string(controlVariable) + " is not set: not under zrnsim");
    }
    return ControlClient(path);
}

nlohmann::json ControlClient::call(const nlohmann::json& request)
{
    const std::string line = request.dump() + "\n";
    for (std::size_t sent = 0; sent < line.size();) {
        const ssize_t count =
            send(m_socket.get(), line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) {
            throw std::runtime_error("the control socket was closed");
        }
        sent += static_cast<std::size_t>(count);
    }
    std::size_t end = m_received.find('\n');
    while (end == std::string::npos) {
        std::array<char, 65536> block;
        const ssize_t count = recv(m_socket.get(), block.data(), block.size(), 0);
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
