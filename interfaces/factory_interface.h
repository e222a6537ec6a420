#pragma once

#include "device_interface.h"
#include "error_code.h"

#include <QObject>
#include <QVersionNumber>

/// Root object of a driver plugin.
///
/// Ownership: the factory owns the devices that it creates; destroying it deletes them.
/// Thread safety: any thread may call any operation, but must not enumerate while another one
/// connects.
class IFactory : public QObject
{
    Q_OBJECT

public:
    explicit IFactory(QObject* parent = nullptr)
        : QObject(parent)
    {
    }
    ~IFactory() override = default;

    /// Name of the driver.
    virtual QString name() = 0;
    /// Version of the driver.
    virtual QVersionNumber version() = 0;
    /// Finds and opens the devices on the bus. @return how many were opened.
    virtual int enumDevice() = 0;
    /// Makes an unconnected device, reached through its DeviceInterface base.
    virtual BaseDeviceSpace::DeviceInterface* createDevice() = 0;
    /// Deletes a device that this factory made and sets @p device to null.
    virtual ErrorCode deleteDevice(BaseDeviceSpace::DeviceInterface*& device) = 0;
};

Q_DECLARE_INTERFACE(IFactory, "Quorvane.Device.IFactory.2.0.200324")
