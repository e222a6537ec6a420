#include "common/property_values.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace zrnhost
{
namespace
{

using enum PropertyType;

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
