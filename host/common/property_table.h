#pragma once

#include <QJsonValue>
#include <QString>
#include <QVariant>

#include <optional>
#include <span>

namespace zrnhost
{

enum class PropertyType { Int, UInt, Bool, Double, Text, Record };

/// What a host knows about one property of the driver.
struct PropertyInfo {
    const char* key;
    PropertyType type;
    bool writable;
    const char* unit; ///< empty when it has none
    qint64 minimum;   ///< of the values that a host may write; equal to maximum: no range
    qint64 maximum;
    const char* meaning;
    const char* carrier; ///< UVC control of the camera behind it; empty: kept by the driver
};

/// Every property, by key. Thread safety: reentrant, as all of this header.
std::span<const PropertyInfo> properties();

/// @return the entry of @p key, or null.
const PropertyInfo* findProperty(const QString& key);

/// "int", "unsigned", "bool", "double", "text", "record".
const char* typeName(PropertyType type);

/// "0 to 255", or empty.
QString rangeText(const PropertyInfo& property);

/// The value that the driver wants for @p text, of the type that the property has. Nothing when the
/// text does not fit type and range.
std::optional<QVariant> parseValue(const PropertyInfo& property, const QString& text);

/// Whether @p value has the type that the property is read as.
bool hasTypeOf(const PropertyInfo& property, const QVariant& value);

/// A property value as JSON; lists of numbers become arrays.
QJsonValue toJson(const QVariant& value);

/// A property value as text for a reader.
QString toText(const QVariant& value);

} // namespace zrnhost
