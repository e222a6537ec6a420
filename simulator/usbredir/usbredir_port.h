#pragma once

#include "control/file_descriptor.h"
#include "model/camera.h"
#include "usbredir/event.h"

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace zrnsim
{

class RedirectedCamera;

/// A port of the bus: a UNIX socket that takes one host at a time, and a thread that serves it.
/// Thread safety: thread-safe.
class UsbRedirPort
{
public:
    /// Listens, with the camera plugged in. The camera outlives the port.
    /// @throws std::system_error
    UsbRedirPort(Camera& camera, std::filesystem::path path);
    ~UsbRedirPort();
    UsbRedirPort(const UsbRedirPort&) = delete;
    UsbRedirPort& operator=(const UsbRedirPort&) = delete;

    void unplug();
    void plug(std::optional<std::uint64_t> serial);
    bool isPlugged() const;
    const std::filesystem::path& path() const { return m_path; }

private:
    void run();
    void waitForEvents();
    void acceptHost();
    void closeConnection();

    Camera& m_camera;
    const std::filesystem::path m_path;
    const FileDescriptor m_listener;
    const Event m_event; ///< wakes the thread

    /// Guards what follows. Cameras are called with it held; their wake handlers do not take it.
    mutable std::mutex m_mutex;
    bool m_isPlugged = true;
    bool m_quits = false;
    FileDescriptor m_connection;
    std::unique_ptr<RedirectedCamera> m_host; ///< while there is a connection

    std::thread m_thread; // the last member: the thread uses all others
};

} // namespace zrnsim
