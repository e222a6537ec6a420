#pragma once

#include "control/file_descriptor.h"

#include <nlohmann/json_fwd.hpp>

#include <string>

namespace zrnsim
{

/// Environment variable that tells a command under zrnsim where the control socket is.
inline constexpr const char* controlVariable = "ZRNSIM_CONTROL";

/// A connection to the control socket. Not thread-safe.
class ControlClient
{
public:
    /// @throws std::system_error when nobody listens there
    explicit ControlClient(const std::string& socketPath);

    /// Connects to the socket that the environment names. @throws std::runtime_error without one
    static ControlClient fromEnvironment();

    /// Sends a request and waits for its answer. @throws std::runtime_error when the connection
    /// ends
    nlohmann::json call(const nlohmann::json& request);

private:
    FileDescriptor m_socket;
    std::string m_received; ///< what came after the last answer's end
};

} // namespace zrnsim
