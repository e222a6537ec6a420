#include "common/property_table.h"

#include "common/property_keys.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <array>
#include <limits>

namespace zrnhost
{
namespace
{

constexpr qint64 anyInt = std::numeric_limits<qint32>::max();
constexpr qint64 anyUnsigned = std::numeric_limits<quint32>::max();

using enum PropertyType;

// clang-format off
constexpr std::array table{
    PropertyInfo{keys::bGain, Int, true, "", 0, 255, "colour gain B", "Saturation"},
    PropertyInfo{keys::cacheFrameCount, Int, true, "frames", 1, anyInt, "frames that the driver keeps for grabs; while stopped only", ""},
    PropertyInfo{keys::capturePeriod, UInt, true, "", 0, anyUnsigned, "a number that the driver keeps for the host", ""},
    PropertyInfo{keys::enableCheckExposureTime, Bool, true, "", 0, 0, "read the exposure back after writing it", ""},
    PropertyInfo{keys::enableCheckGain, Bool, true, "", 0, 0, "read the gain back after writing it", ""},
    PropertyInfo{keys::frameRate, Double, false, "frames/s", 0, 0, "frame rate that the driver measured", ""},
    PropertyInfo{keys::gbGain, Int, true, "", 0, 255, "colour gain GB", "Hue"},
    PropertyInfo{keys::grGain, Int, true, "", 0, 255, "colour gain GR", "Sharpness"},
    PropertyInfo{keys::gamma, Int, true, "", 0, 65535, "gamma", "Gamma"},
    PropertyInfo{keys::heartBeat, Record, false, "", 0, 0, "whether the camera answers, and its frame rate", "Gain"},
    PropertyInfo{keys::hue, Int, true, "", -32768, 32767, "hue", "Hue"},
    PropertyInfo{keys::maxGrabWaitTime, UInt, true, "ms", 0, anyUnsigned, "longest wait of a grab", ""},
    PropertyInfo{keys::rGain, Int, true, "", 0, 255, "colour gain R", "Gamma"},
    PropertyInfo{keys::resolutionIndex, Int, true, "", 0, anyInt, "position of the image size in its format; writing always fails", ""},
    PropertyInfo{keys::resolutionList, Record, false, "", 0, 0, "answers only for a camera without uncompressed sizes", ""},
    PropertyInfo{keys::sensorCount, Int, false, "", 0, 0, "1 for sensor type 6, else 2", "Contrast"},
    PropertyInfo{keys::serial, Text, false, "", 0, 0, "serial", "Backlight Compensation"},
    PropertyInfo{keys::sharp, Int, true, "", 0, 65535, "sharpness", "Sharpness"},
};
// clang-format on

std::optional<QVariant> parseFlag(const QString& text)
{
    const QString word = text.toLower();
    if (word == QLatin1String("true") || word == QLatin1String("on") ||
        word == QLatin1String("1")) {
        return true;
    }
    if (word == QLatin1String("false") || word == QLatin1String("off") ||
        word == QLatin1String("0")) {
        return false;
    }
    return std::nullopt;
}

} // namespace

std::span<const PropertyInfo> properties()
{
    return table;
}

const PropertyInfo* findProperty(const QString& key)
{
    const auto* found = std::find_if(table.begin(), table.end(), [&key](const auto& property) {
        return key == QLatin1String(property.key);
    });
    return found == table.end() ? nullptr : found;
}

const char* typeName(PropertyType type)
{
    switch (type) {
    case Int:
        return "int";
    case UInt:
        return "unsigned";
    case Bool:
        return "bool";
    case Double:
        return "double";
    case Text:
        return "text";
    case Record:
        break;
    }
    return "record";
}

QString rangeText(const PropertyInfo& property)
{
    return property.minimum == property.maximum
               ? QString()
               : QStringLiteral("%1 to %2").arg(property.minimum).arg(property.maximum);
}

std::optional<QVariant> parseValue(const PropertyInfo& property, const QString& text)
{
    if (property.type == Bool) {
        return parseFlag(text);
    }
    bool isNumber = false;
    const qint64 number = text.toLongLong(&isNumber, 0);
    if (!isNumber || number < property.minimum || number > property.maximum) {
        return std::nullopt;
    }
    if (property.type == UInt) {
        return QVariant(static_cast<quint32>(number));
    }
    return QVariant(static_cast<qint32>(number));
}

bool hasTypeOf(const PropertyInfo& property, const QVariant& value)
{
    switch (property.type) {
    case Int:
        return value.userType() == QMetaType::Int;
    case UInt:
        return value.userType() == QMetaType::UInt;
    case Bool:
        return value.userType() == QMetaType::Bool;
    case Double:
        return value.userType() == QMetaType::Double;
    case Text:
        return value.userType() == QMetaType::QString;
    case Record:
        break;
    }
    return value.userType() == QMetaType::QVariantMap;
}

QJsonValue toJson(const QVariant& value)
{
    if (value.userType() == QMetaType::QVariantMap) {
        QJsonObject object;
        const QVariantMap map = value.toMap();
        for (auto entry = map.begin(); entry != map.end(); ++entry) {
            object[entry.key()] = toJson(entry.value());
        }
        return object;
    }
    if (value.userType() == qMetaTypeId<QList<int>>()) {
        QJsonArray array;
        for (const int number : value.value<QList<int>>()) {
            array.append(number);
        }
        return array;
    }
    return QJsonValue::fromVariant(value);
}

QString toText(const QVariant& value)
{
    if (value.userType() == QMetaType::QVariantMap) {
        return QString::fromUtf8(
            QJsonDocument(toJson(value).toObject()).toJson(QJsonDocument::Compact));
    }
    return value.toString();
}

} // namespace zrnhost
