#pragma once

#include "camera_search.h"
#include "command.h"
#include "common/camera.h"
#include "common/driver_plugin.h"
#include "interrupt.h"

#include <QJsonObject>

#include <memory>
#include <vector>

/// The file of the driver that the options choose. @throws ToolError
QString locatePlugin(const GlobalOptions& options);

/// Name, version and file of a driver.
QJsonObject driverJson(zrnhost::DriverPlugin& plugin);

/// The loaded driver, and the cameras that the user chose. Other cameras are left alone, unless the
/// driver can only enumerate all.
///
/// Thread safety: made, used and ended by one thread, but for connect() with a choice and
/// reconnect(), which any thread may call once choices() has returned.
class Session
{
public:
    /// Finds and loads the plugin. @throws PluginError, ToolError
    explicit Session(const GlobalOptions& options);

    IFactory& factory() { return m_plugin.factory(); }
    QJsonObject driverJson() { return ::driverJson(m_plugin); }

    /// Connects the one camera that the options choose. @throws ToolError, DriverError
    zrnhost::Camera& connect();

    /// The cameras that the options choose; to be called first. @throws ToolError
    std::vector<CameraChoice> choices();
    /// Connects one of them. @throws ToolError, DriverError
    std::unique_ptr<zrnhost::Camera> connect(const CameraChoice& choice);

    /// Opens and connects a camera anew that was lost. @return whether it is there.
    bool reconnect(zrnhost::Camera& camera, const QString& serial);

private:
    void connectEnumerated(zrnhost::Camera& camera, const CameraChoice& choice) const;
    void enumerateAll();

    const GlobalOptions& m_options;
    zrnhost::DriverPlugin m_plugin;
    zrn::Bus m_bus;
    zrnhost::DeviceOpener m_opener;
    CameraSearch m_search;
    int m_enumerated = -1; // cameras, where the driver cannot choose; -1: not yet
    std::unique_ptr<zrnhost::Camera> m_camera;
};

/// A running stream: started by the constructor, stopped by stop() or the destructor. Ctrl-C stops
/// it too, which wakes a grab that waits.
class RunningStream
{
public:
    /// @throws DriverError
    RunningStream(zrnhost::Camera& camera, Interrupt& interrupt);
    ~RunningStream();
    RunningStream(const RunningStream&) = delete;
    RunningStream& operator=(const RunningStream&) = delete;

private:
    zrnhost::Camera& m_camera;
    Interrupt& m_interrupt;
};
