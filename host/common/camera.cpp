#include "common/camera.h"

#include "common/driver_error.h"
#include "common/property_keys.h"

#include <algorithm>

namespace zrnhost
{
namespace
{

const QString serialPrefix = QStringLiteral("ZR");

} // namespace

Camera::Camera(IFactory& factory)
    : m_factory(factory)
    , m_device(factory.createDevice())
    , m_camera(dynamic_cast<CameraSpace::CameraInterface*>(m_device))
{
    if (!m_camera) {
        m_factory.deleteDevice(m_device);
        throw DriverError(QStringLiteral("creating a camera object"), ErrorCode::NotSupported);
    }
}

Camera::~Camera()
{
    m_factory.deleteDevice(m_device);
}

ErrorCode Camera::readProperty(const QString& key, QVariant& value)
{
    QMap<QString, QVariant> values;
    const ErrorCode result = m_device->getProperty(key, values);
    if (result == ErrorCode::Success) {
        value = values.value(QString::fromLatin1(keys::value));
    }
    return result;
}

ErrorCode Camera::writeProperty(const QString& key, const QVariant& value)
{
    return m_device->setProperty(key, {{QString::fromLatin1(keys::value), value}});
}

QVariant Camera::property(const QString& key)
{
    QVariant value;
    check(readProperty(key, value), QStringLiteral("reading %1").arg(key));
    return value;
}

ErrorCode Camera::run(const QString& command)
{
    QMap<QString, QVariant> values;
    return m_device->executeCommand(command, values);
}

QString serialNumberOf(const QString& serial)
{
    return serial.mid(serialPrefix.size());
}

QString serialFromUser(const QString& text)
{
    const bool isNumber = !text.isEmpty() && std::all_of(text.begin(), text.end(), [](QChar c) {
        return c >= QLatin1Char('0') && c <= QLatin1Char('9');
    });
    return isNumber ? serialPrefix + text : text;
}

} // namespace zrnhost
