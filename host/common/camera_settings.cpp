#include "common/camera_settings.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cmath>
#include <functional>
#include <limits>
#include <type_traits>
#include <vector>

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

const zrn::PropertyInfo& settingNamed(const QString& key)
{
    const zrn::PropertyInfo* property = zrn::findProperty(key.toStdString());
    if (!property || !isOfCamera(*property)) {
        refuse(QStringLiteral("%1 is no setting of a camera").arg(key));
    }
    return *property;
}

void readProperties(const QJsonValue& value, CameraSettings& settings)
{
    if (!value.isObject()) {
        refuse(QStringLiteral("properties is not an object"));
    }
    const QJsonObject object = value.toObject();
    for (auto entry = object.begin(); entry != object.end(); ++entry) {
        const QString key = entry.key();
        const zrn::PropertyInfo& property = settingNamed(key);
        settings.properties[property.key] = static_cast<std::int32_t>(
            numberIn(key, entry.value(), property.minimum, property.maximum));
    }
}

/// One setting on its way to a camera.
struct Setting {
    QString name;
    QString unit; ///< after a number, with its space
    std::int64_t value;
    std::function<void()> write;
    std::function<std::int64_t()> read;
};

template <typename Number>
void checkRange(const char* name, Number value, const zrn::Range<Number>& range, const char* unit)
{
    if (value < range.minimum || value > range.maximum) {
        const auto text = [](Number number) {
            if constexpr (std::is_integral_v<Number>) {
                return QString::number(number);
            } else {
                return QString::number(number.count());
            }
        };
        refuse(QStringLiteral("%1 %2%5 is not from %3 to %4%5, which this camera allows")
                   .arg(QLatin1String(name), text(value), text(range.minimum), text(range.maximum),
                        QLatin1String(unit)));
    }
}

/// In the order in which they are to be written. @throws SettingsError, zrn::Error
std::vector<Setting> checkedSettings(const CameraSettings& settings, zrn::Camera& camera)
{
    std::vector<Setting> checked;
    for (const bool areColourGains : {true, false}) {
        for (const auto& entry : settings.properties) {
            const std::string& key = entry.first;
            const std::int32_t value = entry.second;
            if (isColourGain(key) != areColourGains) {
                continue;
            }
            const QString name = QString::fromStdString(key);
            const zrn::PropertyInfo& property = settingNamed(name);
            numberIn(name, value, property.minimum, property.maximum);
            checked.push_back({name,
                               {},
                               value,
                               [&camera, key, value] { camera.setProperty(key, value); },
                               [&camera, key] {
                                   return static_cast<std::int64_t>(
                                       zrn::numberOf(camera.property(key)));
                               }});
        }
    }
    if (settings.exposure) {
        const std::chrono::microseconds exposure = *settings.exposure;
        checkRange("exposure", exposure, camera.exposureRange(), " us");
        checked.push_back({QStringLiteral("exposure"), QStringLiteral(" us"), exposure.count(),
                           [&camera, exposure] { camera.setExposure(exposure); },
                           [&camera] { return std::int64_t{camera.exposure().count()}; }});
    }
    if (settings.gain) {
        const std::uint32_t gain = *settings.gain;
        checkRange("gain", gain, camera.gainRange(), "");
        checked.push_back({QStringLiteral("gain"),
                           {},
                           gain,
                           [&camera, gain] { camera.setGain(gain); },
                           [&camera] { return std::int64_t{camera.gain()}; }});
    }
    return checked;
}

/// The same error that also names what was set before it.
zrn::Error withSetBefore(const zrn::Error& error, const QStringList& set)
{
    const std::string before =
        " (set before it: " +
        (set.isEmpty() ? "nothing" : set.join(QStringLiteral(", ")).toStdString()) + ")";
    return error.kind() == zrn::Error::Kind::Refused
               ? zrn::Error(error.tried() + before, error.code())
               : zrn::Error(error.kind(), error.name(), error.what() + before, error.remedy());
}

/// What a camera has made of a setting; empty: what was wanted, or it does not tell.
QString differenceOf(const Setting& setting)
{
    try {
        const std::int64_t made = setting.read();
        return made == setting.value ? QString()
                                     : QStringLiteral("%1: the camera has made %2%4 of %3%4")
                                           .arg(setting.name)
                                           .arg(made)
                                           .arg(setting.value)
                                           .arg(setting.unit);
    } catch (const zrn::Error&) {
        return {};
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

QStringList applySettings(const CameraSettings& settings, zrn::Camera& camera)
{
    const std::vector<Setting> wanted = checkedSettings(settings, camera);
    QStringList set;
    QStringList notes;
    for (const Setting& setting : wanted) {
        try {
            setting.write();
        } catch (const zrn::Error& error) {
            throw withSetBefore(error, set);
        }
        set.append(setting.name);
        const QString note = differenceOf(setting);
        if (!note.isEmpty()) {
            notes.append(note);
        }
    }
    return notes;
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
