#pragma once

#include "camera_interface.h"
#include "factory_interface.h"

#include <QVariant>

namespace zrnhost
{

/// One camera object of the driver, owned: made by the factory, deleted through it, which also
/// stops its stream and disconnects it. Must not outlive the factory.
///
/// Thread safety: as the interfaces that it holds.
class Camera
{
public:
    /// @throws DriverError when the driver's object is no camera
    explicit Camera(IFactory& factory);
    ~Camera();
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    CameraSpace::CameraInterface& operator*() { return *m_camera; }
    CameraSpace::CameraInterface* operator->() { return m_camera; }

    /// Reads a property. @p value is untouched unless the result is success.
    ErrorCode readProperty(const QString& key, QVariant& value);
    /// Writes a property. The driver judges the variant by its type.
    ErrorCode writeProperty(const QString& key, const QVariant& value);
    /// Reads a property. @throws DriverError
    QVariant property(const QString& key);
    /// Runs a command.
    ErrorCode run(const QString& command);

private:
    IFactory& m_factory;
    BaseDeviceSpace::DeviceInterface* m_device;
    CameraSpace::CameraInterface* m_camera;
};

/// The number inside a serial as the driver gives it: "ZR4711" is the number 4711.
QString serialNumberOf(const QString& serial);

/// The serial as the driver wants it, from either form of it.
QString serialFromUser(const QString& text);

} // namespace zrnhost
