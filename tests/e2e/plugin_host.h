#pragma once

#include "camera_interface.h"
#include "factory_interface.h"

#include <QLibrary>
#include <QList>
#include <QPluginLoader>
#include <QString>

#include <memory>
#include <ostream>
#include <vector>

/// The built plugin as any host has it: through Qt's plugin loader and the host contract.
class PluginHost
{
public:
    /// Loads the plugin that the build made. @param hints Qt's default leaves the library mapped
    /// when it is unloaded; without hints it goes. \throws std::runtime_error when that fails
    explicit PluginHost(QLibrary::LoadHints hints = QLibrary::PreventUnloadHint);
    ~PluginHost();
    PluginHost(const PluginHost&) = delete;
    PluginHost& operator=(const PluginHost&) = delete;

    IFactory& factory() { return *m_factory; }

    /// Deletes the factory and unloads the library. @return false while somebody else uses it.
    bool unload();

private:
    QPluginLoader m_loader;
    IFactory* m_factory = nullptr;
};

/// One camera of a factory, deleted with this object.
class HostCamera
{
public:
    explicit HostCamera(IFactory& factory);
    ~HostCamera();
    HostCamera(const HostCamera&) = delete;
    HostCamera& operator=(const HostCamera&) = delete;

    BaseDeviceSpace::DeviceInterface& device() { return *m_device; }
    CameraSpace::CameraInterface& camera() { return *m_camera; }
    CameraSpace::CameraInterface* operator->() { return m_camera; }

    /// The value of a property, or an invalid variant.
    QVariant property(const char* key);
    ErrorCode setProperty(const char* key, const QVariant& value);

private:
    IFactory& m_factory;
    BaseDeviceSpace::DeviceInterface* m_device;
    CameraSpace::CameraInterface* m_camera;
};

/// Milliseconds, for grabs that must not fail because the machine is busy.
inline constexpr int patientGrabMs = 20'000;

using Images = std::vector<std::unique_ptr<CameraSpace::ImageBlock>>;

/// What one grab gave.
struct Grab {
    ErrorCode result;
    Images images;
};
Grab grab(CameraSpace::CameraInterface& camera);

/// The trailer behind an image's pixels.
quint64 trailerOf(const CameraSpace::ImageBlock& image);

/// Result codes are compared by their enumerators and printed as their numbers.
inline void PrintTo(ErrorCode result, std::ostream* stream)
{
    *stream << static_cast<quint32>(result);
}
