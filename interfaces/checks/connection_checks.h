#pragma once

#include "../camera_interface.h"
#include "../factory_interface.h"
#include "account.h"
#include "device_properties.h"

namespace ContractSpace
{

/// What a camera that is not connected refuses.
inline void checkUnconnected(CameraSpace::CameraInterface& camera, Account& account)
{
    account.expectCode(QStringLiteral("refuse a second disconnection"), camera.disconnectDevice(),
                       ErrorCode::NotConnected);
    account.expectCode(QStringLiteral("refuse to reconnect"), camera.reconnectDevice(),
                       ErrorCode::NotConnected);
    QMap<QString, QVariant> values;
    account.expectCode(QStringLiteral("refuse a property without a camera"),
                       camera.getProperty(serialKey, values), ErrorCode::NoCamera);
    account.expectCode(QStringLiteral("refuse a command without a camera"),
                       camera.executeCommand(unknownKey, values), ErrorCode::NoCamera);
}

/// Disconnects, and connects the same camera again after another enumeration. @p camera is
/// connected and does not stream.
inline void checkConnection(IFactory& factory, CameraSpace::CameraInterface& camera,
                            Account& account)
{
    account.setGroup(QStringLiteral("connection"));
    QVariant serial;
    readProperty(camera, serialKey, serial);
    account.expectCode(QStringLiteral("refuse a second connection"),
                       camera.connectDeviceBySerial(serial.toString()),
                       ErrorCode::AlreadyConnected);
    account.expectCode(QStringLiteral("reconnect"), camera.reconnectDevice());
    account.expectCode(QStringLiteral("disconnect"), camera.disconnectDevice());
    checkUnconnected(camera, account);
    account.expectCode(QStringLiteral("refuse to connect before another enumeration"),
                       camera.connectDeviceBySerial(serial.toString()), ErrorCode::NodeNotOpen);
    const int cameras = factory.enumDevice();
    account.expect(QStringLiteral("enumerate again"), cameras > 0,
                   QStringLiteral("%1 cameras").arg(cameras));
    account.expectCode(QStringLiteral("refuse an empty serial"),
                       camera.connectDeviceBySerial(QString()), ErrorCode::BadArgument);
    account.expectCode(QStringLiteral("refuse an unknown serial"),
                       camera.connectDeviceBySerial(QStringLiteral("ZRnone")),
                       ErrorCode::SerialNotFound);
    account.expectCode(QStringLiteral("refuse a negative index"), camera.connectDeviceByIndex(-1),
                       ErrorCode::BadArgument);
    account.expectCode(QStringLiteral("refuse an index beyond the last"),
                       camera.connectDeviceByIndex(cameras), ErrorCode::BadArgument);
    account.expectCode(QStringLiteral("connect again"),
                       camera.connectDeviceBySerial(serial.toString()));
}

} // namespace ContractSpace
