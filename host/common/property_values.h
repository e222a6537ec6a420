#pragma once

#include "common/property_table.h"

#include <QJsonValue>
#include <QString>
#include <QVariant>

#include <optional>

namespace zrnhost
{

/// "int", "unsigned", "bool", "double", "text", "record". Thread safety: reentrant, as all of this
/// header.
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
