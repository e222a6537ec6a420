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
///
/// Chosen devices, an optional ability. A factory has it whose property `deviceSerials` is valid. A
/// host that sets the property `devices` to a QStringList of places on the bus, as folders and
/// files under /dev/bus/usb are named ("001/002"), makes enumDevice() close and open the devices at
/// these places alone; with a minus in front ("-001/002") one is closed and not opened. Devices
/// that have left the bus, or were closed, are forgotten; every other one stays open, connected and
/// streaming. enumDevice() then returns how many are open in all, of
/// which connecting by index counts, and `deviceSerials` holds the serial of each, under its place,
/// in a QVariantMap. A device that cannot be opened is left out, as are malformed places and a
/// device with the serial of one that stays open. An empty `devices`, as at first, means every
/// device. Dynamic properties of a QObject belong to the thread that it lives in: there a host sets
/// this one, enumerates chosen devices and reads their serials.
///
/// Guards, an optional ability. A driver that guards its process against faults of the libraries
/// that it stands on says after an enumeration in the property `guards`, a QString, that they are
/// "in effect" or "not needed", or why they are missing. Until then it is empty.
class IFactory : public QObject
{
    Q_OBJECT

public:
    /// Names of the dynamic properties.
    static constexpr const char* devicesProperty = "devices";
    static constexpr const char* deviceSerialsProperty = "deviceSerials";
    static constexpr const char* guardsProperty = "guards";

    explicit IFactory(QObject* parent = nullptr)
        : QObject(parent)
    {
    }
    ~IFactory() override = default;

    /// Name of the driver.
    virtual QString name() = 0;
    /// Version of the driver.
    virtual QVersionNumber version() = 0;
    /// Finds and opens the devices on the bus, all or the chosen ones. @return how many were
    /// opened; with chosen ones, how many are open.
    virtual int enumDevice() = 0;
    /// Makes an unconnected device, reached through its DeviceInterface base.
    virtual BaseDeviceSpace::DeviceInterface* createDevice() = 0;
    /// Deletes a device that this factory made and sets @p device to null.
    virtual ErrorCode deleteDevice(BaseDeviceSpace::DeviceInterface*& device) = 0;
};

Q_DECLARE_INTERFACE(IFactory, "Quorvane.Device.IFactory.2.0.200324")
