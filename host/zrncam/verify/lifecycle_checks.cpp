#include "common/property_keys.h"
#include "verify/compliance.h"

void checkLifecycle(IFactory& factory, zrnhost::Camera& camera, Compliance& compliance)
{
    compliance.setGroup(QStringLiteral("lifecycle"));
    QVariant serial;
    camera.readProperty(zrnhost::keys::serial, serial);
    compliance.expectCode(QStringLiteral("refuse a second connection"),
                          camera->connectDeviceBySerial(serial.toString()),
                          ErrorCode::AlreadyConnected);
    compliance.expectCode(QStringLiteral("reconnect"), camera->reconnectDevice());
    compliance.expectCode(QStringLiteral("disconnect"), camera->disconnectDevice());
    compliance.expectCode(QStringLiteral("refuse a second disconnection"),
                          camera->disconnectDevice(), ErrorCode::NotConnected);
    compliance.expectCode(QStringLiteral("refuse to reconnect"), camera->reconnectDevice(),
                          ErrorCode::NotConnected);
    QVariant value;
    compliance.expectCode(QStringLiteral("refuse a property without a camera"),
                          camera.readProperty(zrnhost::keys::serial, value), ErrorCode::NoCamera);
    compliance.expectCode(QStringLiteral("refuse to connect before another enumeration"),
                          camera->connectDeviceBySerial(serial.toString()), ErrorCode::NodeNotOpen);
    const int cameras = factory.enumDevice();
    compliance.expect(QStringLiteral("enumerate again"), cameras > 0,
                      QStringLiteral("%1 cameras").arg(cameras));
    compliance.expectCode(QStringLiteral("refuse an empty serial"),
                          camera->connectDeviceBySerial(QString()), ErrorCode::BadArgument);
    compliance.expectCode(QStringLiteral("refuse an unknown serial"),
                          camera->connectDeviceBySerial(QStringLiteral("ZRnone")),
                          ErrorCode::SerialNotFound);
    compliance.expectCode(QStringLiteral("refuse a negative index"),
                          camera->connectDeviceByIndex(-1), ErrorCode::BadArgument);
    compliance.expectCode(QStringLiteral("refuse an index beyond the last"),
                          camera->connectDeviceByIndex(cameras), ErrorCode::BadArgument);
    compliance.expectCode(QStringLiteral("connect again"),
                          camera->connectDeviceBySerial(serial.toString()));
}
