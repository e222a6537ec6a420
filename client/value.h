#pragma once

#include "client/property_table.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace zrn
{

struct Field;

/// Value of a property, in one of the types that the driver knows; std::monostate is none.
using Value = std::variant<std::monostate, std::int32_t, std::uint32_t, bool, double, std::string,
                           std::vector<std::int32_t>, std::vector<Field>>;

/// One entry of a record.
struct Field {
    std::string name;
    Value value;
};
bool operator==(const Field& a, const Field& b);

/// The entry of a record; null when there is none, or @p record is no record.
const Value* findField(const Value& record, std::string_view name);

/// "int", "unsigned", "bool", "double", "text", "record". Thread safety: reentrant, as all of this
/// header.
const char* typeName(PropertyType type);

/// "0 to 255", or empty.
std::string rangeText(const PropertyInfo& property);

/// The value that the driver wants for @p text, of the type that the property has. Nothing when the
/// text does not fit type and range.
std::optional<Value> parseValue(const PropertyInfo& property, std::string_view text);

/// Whether @p value has the type that the property is read as.
bool hasTypeOf(const PropertyInfo& property, const Value& value);

/// The value as a number: flags are 0 or 1, what is no number is 0.
double numberOf(const Value& value);

/// The value as text for a reader; a list or a record as JSON.
std::string toText(const Value& value);

} // namespace zrn
