#include "common/camera_settings.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>
#include <limits>

namespace zrnhost
{
namespace
{

constexpr const char* kind = "zrncam-settings";
constexpr int version = 1;

/// The properties that a file holds: of those that share a control, the one that is all of it.
constexpr std::array kept = {zrn::keys::bGain, zrn::keys::gamma, zrn::keys::hue, zrn::keys::sharp};

bool isColourGain(const std::string& key)
{
    return key.ends_with("Gain");
}

bool isOfCamera(const zrn::PropertyInfo& property)
{
    return property.writable && *property.carrier != '\0';
}

[[noreturn]] void refuse(const QString& why)
{
    throw SettingsError(why.toStdString());
}

/// A whole number in a range.
std::int64_t numberIn(const QString& name, const QJsonValue& value, std::int64_t minimum,
                      std::int64_t maximum)
{
    const double number = value.toDouble(std::numeric_limits<double>::quiet_NaN());
    if (!(number >= static_cast<double>(minimum) && number <= static_cast<double>(maximum)) ||
        number != std::floor(number)) {
        refuse(QStringLiteral("%1 is not a whole number from %2 to %3")
                   .arg(name)
                   .arg(minimum)
                   .arg(maximum));
    }
    return static_cast<std::int64_t>(number);
}

void readProperties(const QJsonValue& value, CameraSettings& settings)
{
    if (!value.isObject()) {
        refuse(QStringLiteral("properties is not an object"));
    }
    const QJsonObject object = value.toObject();
    for (auto entry = object.begin(); entry != object.end(); ++entry) {
        const std::string key = entry.key().toStdString();
        const zrn::PropertyInfo* property = zrn::findProperty(key);
        if (!property || !isOfCamera(*property)) {
            refuse(QStringLiteral("%1 is no setting of a camera").arg(entry.key()));
        }
        settings.properties[key] = static_cast<std::int32_t>(
            numberIn(entry.key(), entry.value(), property->minimum, property->maximum));
    }
}

} // namespace

CameraSettings settingsOf(zrn::Camera& camera)
{
    CameraSettings settings;
    settings.serial = camera.facts().serial;
    settings.exposure = camera.exposure();
    settings.gain = camera.gain();
    for (const char* key : kept) {
        try {
            settings.properties[key] =
                static_cast<std::int32_t>(zrn::numberOf(camera.property(key)));
        } catch (const zrn::Error&) {
            continue; // this camera has none
        }
    }
    return settings;
}

void applySettings(const CameraSettings& settings, zrn::Camera& camera)
{
    for (const bool areColourGains : {true, false}) {
        for (const auto& [key, value] : settings.properties) {
            if (isColourGain(key) == areColourGains) {
                camera.setProperty(key, value);
            }
        }
    }
    if (settings.exposure) {
        camera.setExposure(*settings.exposure);
    }
    if (settings.gain) {
        camera.setGain(*settings.gain);
    }
}

QByteArray toJson(const CameraSettings& settings)
{
    QJsonObject properties;
    for (const auto& [key, value] : settings.properties) {
        properties[QString::fromStdString(key)] = value;
    }
    QJsonObject json{{QStringLiteral("format"), QLatin1String(kind)},
                     {QStringLiteral("version"), version},
                     {QStringLiteral("serial"), QString::fromStdString(settings.serial)},
                     {QStringLiteral("properties"), properties}};
    if (settings.exposure) {
        json[QLatin1String("exposureMicroseconds")] = qint64{settings.exposure->count()};
    }
    if (settings.gain) {
        json[QLatin1String("gain")] = qint64{*settings.gain};
    }
    return QJsonDocument(json).toJson();
}

CameraSettings settingsFromJson(const QByteArray& text)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(text, &error);
    const QJsonObject json = document.object();
    if (json[QLatin1String("format")] != QLatin1String(kind)) {
        refuse(error.error == QJsonParseError::NoError
                   ? QStringLiteral("it holds no camera settings")
                   : QStringLiteral("it holds no camera settings: %1 at byte %2")
                         .arg(error.errorString())
                         .arg(error.offset));
    }
    if (json[QLatin1String("version")] != version) {
        refuse(QStringLiteral("its version is not %1").arg(version));
    }
    CameraSettings settings;
    for (auto entry = json.begin(); entry != json.end(); ++entry) {
        const QString name = entry.key();
        if (name == QLatin1String("exposureMicroseconds")) {
            settings.exposure = std::chrono::microseconds(
                numberIn(name, entry.value(), 0, std::numeric_limits<std::uint32_t>::max()));
        } else if (name == QLatin1String("gain")) {
            settings.gain = static_cast<std::uint32_t>(
                numberIn(name, entry.value(), 0, std::numeric_limits<std::uint16_t>::max()));
        } else if (name == QLatin1String("properties")) {
            readProperties(entry.value(), settings);
        } else if (name == QLatin1String("serial")) {
            settings.serial = entry.value().toString().toStdString();
        } else if (name != QLatin1String("format") && name != QLatin1String("version")) {
            refuse(QStringLiteral("%1 is no setting of a camera").arg(name));
        }
    }
    return settings;
}

} // namespace zrnhost
