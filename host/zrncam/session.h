#pragma once

#include "command.h"
#include "common/camera.h"
#include "common/driver_plugin.h"
#include "interrupt.h"

#include <QJsonObject>

#include <memory>

/// The loaded driver after one enumeration, and the camera that the user chose.
///
/// Thread safety: thread-bound.
class Session
{
public:
    /// Finds and loads the plugin and enumerates. @throws PluginError, ToolError
    explicit Session(const GlobalOptions& options);

    IFactory& factory() { return m_plugin.factory(); }
    int cameraCount() const { return m_cameraCount; }
    /// Name, version and file of the driver.
    QJsonObject driverJson();

    /// Connects the camera that the options choose: by serial, by index, or the first.
    /// @throws ToolError, DriverError
    zrnhost::Camera& connect();

private:
    const GlobalOptions& m_options;
    zrnhost::DriverPlugin m_plugin;
    int m_cameraCount;
    std::unique_ptr<zrnhost::Camera> m_camera;
};

/// What the bus tells when no camera was enumerated: the message's hint.
QString noCameraHint();

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
