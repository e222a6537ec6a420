#pragma once

#include "../camera_interface.h"
#include "../factory_interface.h"
#include "account.h"

namespace ContractSpace
{

/// What a factory promises without any camera: its identity, and who owns the devices.
inline void checkFactory(IFactory& factory, Account& account)
{
    account.setGroup(QStringLiteral("factory"));
    account.expect(QStringLiteral("driver name"), !factory.name().isEmpty(), factory.name());
    account.expect(QStringLiteral("driver version"), !factory.version().isNull(),
                   factory.version().toString());

    BaseDeviceSpace::DeviceInterface* device = factory.createDevice();
    BaseDeviceSpace::DeviceInterface* other = factory.createDevice();
    account.expect(QStringLiteral("creates devices, each of its own"),
                   device != nullptr && other != nullptr && device != other);
    account.expect(QStringLiteral("a device is a camera"),
                   dynamic_cast<CameraSpace::CameraInterface*>(device) != nullptr);

    BaseDeviceSpace::DeviceInterface* deleted = device;
    account.expectCode(QStringLiteral("delete a device"), factory.deleteDevice(device));
    account.expect(QStringLiteral("deleting sets the pointer to null"), device == nullptr);
    account.expectCode(QStringLiteral("refuse to delete null"), factory.deleteDevice(device),
                       ErrorCode::NoCamera);
    account.expectCode(QStringLiteral("refuse to delete what is deleted"),
                       factory.deleteDevice(deleted), ErrorCode::NothingEnumerated);
    account.expectCode(QStringLiteral("delete the other device"), factory.deleteDevice(other));
}

} // namespace ContractSpace
