#pragma once

#include "control/file_descriptor.h"
#include "usbredir/event.h"

#include <filesystem>
#include <thread>

namespace zrnsim
{

/// The relay near the control socket: takes the line of one virtual machine at a time, on a UNIX
/// socket of its own, and serves it on a thread.
class RelayServer
{
public:
    /// @param line where the line connects
    /// @param server the control socket
    /// @throws std::system_error
    RelayServer(const std::filesystem::path& line, std::filesystem::path server);
    ~RelayServer();
    RelayServer(const RelayServer&) = delete;
    RelayServer& operator=(const RelayServer&) = delete;

private:
    void run();

    const FileDescriptor m_listener;
    const std::filesystem::path m_server;
    const Event m_stop;
    std::thread m_thread; // the last member: the thread uses all others
};

} // namespace zrnsim
