#pragma once

#include "camera_interface.h"
#include "factory_interface.h"
#include "frame_times_interface.h"

#include <QVariant>

namespace zrn
{

/// One camera object of the driver, owned: made by the factory, deleted through it, which also
/// stops its stream and disconnects it. Must not outlive the factory. It speaks the host contract
/// and Qt, for whoever checks or tests a driver; a host uses Camera.
///
/// Thread safety: as the interfaces that it holds.
class CameraObject
{
public:
    /// @throws Error when the driver's object is no camera
    explicit CameraObject(IFactory& factory);
    ~CameraObject();
    CameraObject(const CameraObject&) = delete;
    CameraObject& operator=(const CameraObject&) = delete;

    CameraSpace::CameraInterface& operator*() { return *m_camera; }
    CameraSpace::CameraInterface* operator->() { return m_camera; }

    /// The times of its frames; null where the driver has none.
    [[nodiscard]] CameraSpace::FrameTimesInterface* frameTimes() const { return m_frameTimes; }

    /// Reads a property. @p value is untouched unless the result is success.
    ErrorCode readProperty(const QString& key, QVariant& value);
    /// Writes a property. The driver judges the variant by its type.
    ErrorCode writeProperty(const QString& key, const QVariant& value);
    /// Reads a property. @throws Error
    QVariant property(const QString& key);
    /// Runs a command.
    ErrorCode run(const QString& command);

private:
    IFactory& m_factory;
    BaseDeviceSpace::DeviceInterface* m_device;
    CameraSpace::CameraInterface* m_camera;
    CameraSpace::FrameTimesInterface* m_frameTimes;
};

} // namespace zrn
