#include "checks/device_properties.h"
#include "client/property_keys.h"
#include "client/variants.h"
#include "verify/driver_checks.h"

#include <QRegularExpression>

namespace keys = zrn::keys;
using zrn::PropertyInfo;
using zrn::PropertyType;

namespace
{

constexpr unsigned int grabTimeoutMs = 50;

/// Values that every camera's control should take, beside the one that it has.
std::vector<QVariant> valuesToTry(const PropertyInfo& property, const QVariant& original)
{
    if (property.type == PropertyType::Bool) {
        return {!original.toBool()};
    }
    if (property.type == PropertyType::UInt) {
        return {1U, 250U, 60000U};
    }
    if (QLatin1String(property.key) == QLatin1String(keys::cacheFrameCount)) {
        return {original.toInt() + 1};
    }
    return {0, 1, 85, 170, 255};
}

void checkWriting(zrn::CameraObject& camera, ContractSpace::Account& account,
                  const PropertyInfo& property, const QVariant& original)
{
    const QString key = QString::fromLatin1(property.key);
    // A carrier control may have a narrower range than its property; the camera then refuses.
    const bool carried = *property.carrier != '\0';
    for (const QVariant& value : valuesToTry(property, original)) {
        const QString name = QStringLiteral("write %1 = %2").arg(key, value.toString());
        const ErrorCode result = camera.writeProperty(key, value);
        if (carried && result == ErrorCode::PropertyFailed) {
            account.notSupported(name, result, QStringLiteral("refused by the camera"));
            continue;
        }
        if (!account.expectCode(name, result)) {
            continue;
        }
        QVariant readBack;
        camera.readProperty(key, readBack);
        account.expect(name + QStringLiteral(", read back"), readBack == value,
                       readBack.toString());
    }
    account.expectCode(QStringLiteral("restore %1").arg(key), camera.writeProperty(key, original));
}

void checkProperty(zrn::CameraObject& camera, ContractSpace::Account& account,
                   const PropertyInfo& property)
{
    const QString key = QString::fromLatin1(property.key);
    QVariant value;
    const ErrorCode result = camera.readProperty(key, value);
    const QString reading = QStringLiteral("read %1").arg(key);
    const bool canFail =
        key == QLatin1String(keys::resolutionList) || key == QLatin1String(keys::resolutionIndex);
    const bool isRead = canFail ? account.expectSupport(reading, result, ErrorCode::PropertyFailed)
                                : account.expectCode(reading, result);
    if (isRead) {
        account.expect(QStringLiteral("type of %1").arg(key),
                       zrn::hasTypeOf(property, zrn::fromVariant(value)),
                       QLatin1String(value.typeName()));
    }
    if (!property.writable) {
        account.expectCode(QStringLiteral("refuse to write %1").arg(key),
                           camera.writeProperty(key, 1), ErrorCode::NotSupported);
        return;
    }
    account.expectCode(QStringLiteral("refuse a wrong type for %1").arg(key),
                       camera.writeProperty(key, 1.0), ErrorCode::PropertyFailed);
    if (key == QLatin1String(keys::resolutionIndex)) {
        account.expectSupport(QStringLiteral("write %1").arg(key), camera.writeProperty(key, 0),
                              ErrorCode::PropertyFailed);
    } else if (isRead) {
        checkWriting(camera, account, property, value);
    }
}

} // namespace

void checkSerial(zrn::CameraObject& camera, ContractSpace::Account& account)
{
    account.setGroup(QStringLiteral("identity"));
    const QString serial = camera.property(keys::serial).toString();
    const QRegularExpression form(QStringLiteral("^ZR\\d{1,20}$"));
    account.expect(QStringLiteral("form of the serial"), form.match(serial).hasMatch(), serial);
}

void checkProperties(zrn::CameraObject& camera, ContractSpace::Account& account)
{
    account.setGroup(QStringLiteral("properties"));
    // Dropping cached frames waits once for as long as a grab would.
    const ContractSpace::GrabTimeout wait(*camera, grabTimeoutMs);
    for (const PropertyInfo& property : zrn::propertyTable) {
        checkProperty(camera, account, property);
    }
}

void checkReset(zrn::CameraObject& camera, ContractSpace::Account& account)
{
    account.setGroup(QStringLiteral("commands"));
    account.expectSupport(QString::fromLatin1(keys::clearState), camera.run(keys::clearState),
                          ErrorCode::CommandFailed);
}
