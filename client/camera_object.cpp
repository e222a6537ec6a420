#include "client/camera_object.h"

#include "client/error.h"
#include "client/property_keys.h"

namespace zrn
{

CameraObject::CameraObject(IFactory& factory)
    : m_factory(factory)
    , m_device(factory.createDevice())
    , m_camera(dynamic_cast<CameraSpace::CameraInterface*>(m_device))
    , m_frameTimes(
          qobject_cast<CameraSpace::FrameTimesInterface*>(dynamic_cast<QObject*>(m_device)))
{
    if (!m_camera) {
        m_factory.deleteDevice(m_device);
        throw Error("creating a camera object", ErrorCode::NotSupported);
    }
}

CameraObject::~CameraObject()
{
    m_factory.deleteDevice(m_device);
}

ErrorCode CameraObject::readProperty(const QString& key, QVariant& value)
{
    QMap<QString, QVariant> values;
    const ErrorCode result = m_device->getProperty(key, values);
    if (result == ErrorCode::Success) {
        value = values.value(QString::fromLatin1(keys::value));
    }
    return result;
}

ErrorCode CameraObject::writeProperty(const QString& key, const QVariant& value)
{
    return m_device->setProperty(key, {{QString::fromLatin1(keys::value), value}});
}

QVariant CameraObject::property(const QString& key)
{
    QVariant value;
    check(readProperty(key, value), "reading " + key.toStdString());
    return value;
}

ErrorCode CameraObject::run(const QString& command)
{
    QMap<QString, QVariant> values;
    return m_device->executeCommand(command, values);
}

} // namespace zrn
