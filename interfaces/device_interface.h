#pragma once

#include "error_code.h"

#include <QMap>
#include <QString>
#include <QVariant>

namespace BaseDeviceSpace
{

/// What every device of the framework answers. A device is deleted through the factory that made
/// it, hence no virtual destructor.
///
/// Errors: where no camera is connected, properties and commands answer NoCamera.
///
/// Thread safety: connecting, reconnecting and disconnecting one device belong to one thread at a
/// time; the other operations may be called from any thread. A driver may ask less.
class DeviceInterface
{
public:
    /// Name of the driver.
    virtual QString name() = 0;

    /// Device-type code; 1 is a camera.
    virtual int types() = 0;

    /// Connects to an enumerated device. @param serial as the device's serial number property gives
    /// it: two characters, then the number that the device carries. @return AlreadyConnected,
    /// NothingEnumerated, BadArgument (empty), SerialNotFound, NodeNotOpen or NoFrameDescriptor.
    virtual ErrorCode connectDeviceBySerial(const QString& serial) = 0;

    /// Connects to an enumerated device. @param index from 0, in the order of the serials as texts.
    /// @return AlreadyConnected, NothingEnumerated, BadArgument (out of range), IndexNotFound,
    /// NodeNotOpen or NoFrameDescriptor.
    virtual ErrorCode connectDeviceByIndex(int index) = 0;

    /// Reads geometry, limits and sensor type of the connected device anew. Opens nothing.
    /// @return BadArgument where no device was ever connected, NotConnected or NoFrameDescriptor.
    virtual ErrorCode reconnectDevice() = 0;

    /// Stops the stream and closes the device. It can be connected again after the next
    /// enumeration. @return NotConnected where there is nothing to disconnect.
    virtual ErrorCode disconnectDevice() = 0;

    /// Reads a property. On success @p values holds it under "value"; on failure it is untouched.
    /// @return NotSupported for an unknown key, PropertyFailed where the access failed.
    virtual ErrorCode getProperty(const QString& key, QMap<QString, QVariant>& values) = 0;

    /// Writes a property; the new value is the entry "value" of @p values. @return BadArgument
    /// without that entry, NotSupported for an unknown or read-only key, PropertyFailed where the
    /// value has the wrong type or the access failed.
    virtual ErrorCode setProperty(const QString& key, const QMap<QString, QVariant>& values) = 0;

    /// Runs a command. @p values is neither read nor written by cameras. @return NotSupported for
    /// an unknown command, CommandFailed where the device refused it.
    virtual ErrorCode executeCommand(const QString& command, QMap<QString, QVariant>& values) = 0;

protected:
    ~DeviceInterface() = default;
};

} // namespace BaseDeviceSpace
