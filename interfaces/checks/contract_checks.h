/// Checks that a driver plugin keeps the host contract: header-only, for the author of a plugin and
/// for the author of a host, who wants to know what a plugin at hand will do.
///
/// Needs Qt Core and the headers of the contract. Each group leaves the camera as it found it:
/// connected, stopped, and with the settings that it had.
#pragma once

#include "account.h"
#include "connection_checks.h"
#include "factory_checks.h"
#include "setting_checks.h"
#include "stream_checks.h"

namespace ContractSpace
{

/// Every group that needs a connected camera and nothing else.
inline void checkCamera(CameraSpace::CameraInterface& camera, Account& account)
{
    checkIdentity(camera, account);
    checkExposure(camera, account);
    checkGain(camera, account);
    checkGeometry(camera, account);
    checkUnknownKeys(camera, account);
    checkStream(camera, account);
}

/// Every check, on the first camera of the bus. Takes a few seconds.
///
/// @param factory root object of the plugin, as QPluginLoader gives it; no other camera object of
/// it may be connected.
inline Account checkContract(IFactory& factory)
{
    Account account;
    checkFactory(factory, account);

    account.setGroup(QStringLiteral("connection"));
    const int cameras = factory.enumDevice();
    BaseDeviceSpace::DeviceInterface* device = factory.createDevice();
    auto* camera = dynamic_cast<CameraSpace::CameraInterface*>(device);
    if (account.expect(QStringLiteral("enumerate"), cameras > 0,
                       QStringLiteral("%1 cameras").arg(cameras)) &&
        account.expect(QStringLiteral("create a camera"), camera != nullptr) &&
        account.expectCode(QStringLiteral("connect"), camera->connectDeviceByIndex(0))) {
        checkCamera(*camera, account);
        checkConnection(factory, *camera, account);
    }
    account.setGroup(QStringLiteral("factory"));
    account.expectCode(QStringLiteral("delete the connected camera"), factory.deleteDevice(device));
    return account;
}

} // namespace ContractSpace
