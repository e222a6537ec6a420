#pragma once

#include "control/command_processor.h"

#include <gio/gio.h>
#include <string>

namespace zrnsim
{

/// Serves the control socket on the default main context: JSON requests and answers, one a line.
class ControlServer
{
public:
    /// @throws std::runtime_error when the socket cannot be made
    ControlServer(CommandProcessor& processor, const std::string& socketPath);
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

private:
    GSocketService* m_service;
};

} // namespace zrnsim
