#pragma once

#include "../device_interface.h"

#include <QMap>
#include <QString>
#include <QVariant>

namespace ContractSpace
{

/// Entry of a property's map that carries the value, in both directions.
inline const QString valueEntry = QStringLiteral("value");

/// Keys that the checks use themselves. A driver that does not know one answers NotSupported, and
/// what depends on it is left out.
inline const QString serialKey = QStringLiteral("Serial");
inline const QString grabTimeoutKey = QStringLiteral("MaxGrabWaitTime");

/// A key and a command that no driver has.
inline const QString unknownKey = QStringLiteral("NoSuchKey");

/// Reads a property. @p value is untouched unless the result is success.
inline ErrorCode readProperty(BaseDeviceSpace::DeviceInterface& device, const QString& key,
                              QVariant& value)
{
    QMap<QString, QVariant> values;
    const ErrorCode result = device.getProperty(key, values);
    if (result == ErrorCode::Success) {
        value = values.value(valueEntry);
    }
    return result;
}

/// Writes a property. Drivers judge the variant by its type.
inline ErrorCode writeProperty(BaseDeviceSpace::DeviceInterface& device, const QString& key,
                               const QVariant& value)
{
    return device.setProperty(key, {{valueEntry, value}});
}

/// Shortens the wait of grabs, milliseconds, and restores it at the end of its life.
class GrabTimeout
{
public:
    GrabTimeout(BaseDeviceSpace::DeviceInterface& device, unsigned int milliseconds)
        : m_device(device)
        , m_isSet(readProperty(device, grabTimeoutKey, m_original) == ErrorCode::Success &&
                  writeProperty(device, grabTimeoutKey, milliseconds) == ErrorCode::Success)
    {
    }
    ~GrabTimeout()
    {
        if (m_isSet) {
            writeProperty(m_device, grabTimeoutKey, m_original);
        }
    }
    GrabTimeout(const GrabTimeout&) = delete;
    GrabTimeout& operator=(const GrabTimeout&) = delete;

    bool isSet() const { return m_isSet; }

private:
    BaseDeviceSpace::DeviceInterface& m_device;
    QVariant m_original;
    bool m_isSet;
};

} // namespace ContractSpace
