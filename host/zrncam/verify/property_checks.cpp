#include "common/property_keys.h"
#include "verify/compliance.h"

namespace keys = zrnhost::keys;
using zrnhost::PropertyInfo;
using zrnhost::PropertyType;

namespace
{

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

void checkWriting(zrnhost::Camera& camera, Compliance& compliance, const PropertyInfo& property,
                  const QVariant& original)
{
    const QString key = QString::fromLatin1(property.key);
    // A carrier control may have a narrower range than its property; the camera then refuses.
    const bool carried = *property.carrier != '\0';
    for (const QVariant& value : valuesToTry(property, original)) {
        const QString name = QStringLiteral("write %1 = %2").arg(key, value.toString());
        const ErrorCode result = camera.writeProperty(key, value);
        if (carried && result == ErrorCode::PropertyFailed) {
            compliance.notSupported(name, result, QStringLiteral("refused by the camera"));
            continue;
        }
        if (!compliance.expectCode(name, result)) {
            continue;
        }
        QVariant readBack;
        camera.readProperty(key, readBack);
        compliance.expect(name + QStringLiteral(", read back"), readBack == value,
                          readBack.toString());
    }
    compliance.expectCode(QStringLiteral("restore %1").arg(key),
                          camera.writeProperty(key, original));
}

void checkProperty(zrnhost::Camera& camera, Compliance& compliance, const PropertyInfo& property)
{
    const QString key = QString::fromLatin1(property.key);
    QVariant value;
    const ErrorCode result = camera.readProperty(key, value);
    const QString reading = QStringLiteral("read %1").arg(key);
    const bool canFail =
        key == QLatin1String(keys::resolutionList) || key == QLatin1String(keys::resolutionIndex);
    const bool isRead = canFail
                            ? compliance.expectSupport(reading, result, ErrorCode::PropertyFailed)
                            : compliance.expectCode(reading, result);
    if (isRead) {
        compliance.expect(QStringLiteral("type of %1").arg(key),
                          zrnhost::hasTypeOf(property, value), QLatin1String(value.typeName()));
    }
    if (!property.writable) {
        compliance.expectCode(QStringLiteral("refuse to write %1").arg(key),
                              camera.writeProperty(key, 1), ErrorCode::NotSupported);
        return;
    }
    compliance.expectCode(QStringLiteral("refuse a wrong type for %1").arg(key),
                          camera.writeProperty(key, 1.0), ErrorCode::PropertyFailed);
    if (key == QLatin1String(keys::resolutionIndex)) {
        compliance.expectSupport(QStringLiteral("write %1").arg(key), camera.writeProperty(key, 0),
                                 ErrorCode::PropertyFailed);
    } else if (isRead) {
        checkWriting(camera, compliance, property, value);
    }
}

} // namespace

void checkProperties(zrnhost::Camera& camera, Compliance& compliance)
{
    compliance.setGroup(QStringLiteral("properties"));
    // Dropping cached frames waits once for as long as a grab would.
    QVariant wait;
    const bool canWait = camera.readProperty(keys::maxGrabWaitTime, wait) == ErrorCode::Success &&
                         camera.writeProperty(keys::maxGrabWaitTime, 50) == ErrorCode::Success;
    for (const PropertyInfo& property : zrnhost::properties()) {
        checkProperty(camera, compliance, property);
    }
    if (canWait) {
        camera.writeProperty(keys::maxGrabWaitTime, wait);
    }

    QVariant unread;
    compliance.expectCode(QStringLiteral("refuse to read an unknown key"),
                          camera.readProperty(QStringLiteral("NoSuchKey"), unread),
                          ErrorCode::NotSupported);
    compliance.expectCode(QStringLiteral("refuse to write an unknown key"),
                          camera.writeProperty(QStringLiteral("NoSuchKey"), 1),
                          ErrorCode::NotSupported);
    compliance.expectCode(QStringLiteral("refuse a write without a value"),
                          camera->setProperty(QString::fromLatin1(keys::gamma), {}),
                          ErrorCode::BadArgument);
}

void checkCommands(zrnhost::Camera& camera, Compliance& compliance)
{
    compliance.setGroup(QStringLiteral("commands"));
    compliance.expectSupport(QString::fromLatin1(keys::clearState), camera.run(keys::clearState),
                             ErrorCode::CommandFailed);
    compliance.expectCode(QStringLiteral("refuse an unknown command"),
                          camera.run(QStringLiteral("NoSuchCommand")), ErrorCode::NotSupported);
}
