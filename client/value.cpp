#include "client/value.h"

#include "client/variants.h"

#include <QJsonDocument>

#include <algorithm>
#include <array>
#include <charconv>

namespace zrn
{
namespace
{

using enum PropertyType;

template <typename... Alternatives>
struct Overload : Alternatives... {
    using Alternatives::operator()...;
};
template <typename... Alternatives>
Overload(Alternatives...) -> Overload<Alternatives...>; // which clang 14 does not find by itself

std::optional<Value> parseFlag(std::string_view text)
{
    std::string word(text);
    std::ranges::transform(word, word.begin(), [](char c) {
        return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    });
    if (word == "true" || word == "on" || word == "1") {
        return true;
    }
    if (word == "false" || word == "off" || word == "0") {
        return false;
    }
    return std::nullopt;
}

/// A whole number with a sign, decimal or, after 0x, hexadecimal.
std::optional<std::int64_t> parseNumber(std::string_view text)
{
    const bool isNegative = text.starts_with('-');
    text.remove_prefix(isNegative || text.starts_with('+') ? 1 : 0);
    const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
    text.remove_prefix(isHexadecimal ? 2 : 0);
    std::int64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, isHexadecimal ? 16 : 10);
    const bool isWhole = error == std::errc() && stop == end && number >= 0;
    return isWhole ? std::optional(isNegative ? -number : number) : std::nullopt;
}

std::string textOf(double number)
{
    std::array<char, 32> text{};
    const auto [end, error] = std::to_chars(text.data(), text.data() + text.size(), number);
    return {text.data(), end};
}

} // namespace

bool operator==(const Field& a, const Field& b)
{
    return a.name == b.name && a.value == b.value;
}

const Value* findField(const Value& record, std::string_view name)
{
    const auto* fields = std::get_if<std::vector<Field>>(&record);
    if (!fields) {
        return nullptr;
    }
    const auto found = std::ranges::find(*fields, name, &Field::name);
    return found == fields->end() ? nullptr : &found->value;
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

std::string rangeText(const PropertyInfo& property)
{
    return property.minimum == property.maximum
               ? std::string()
               : std::to_string(property.minimum) + " to " + std::to_string(property.maximum);
}

std::optional<Value> parseValue(const PropertyInfo& property, std::string_view text)
{
    if (property.type == Bool) {
        return parseFlag(text);
    }
    const std::optional<std::int64_t> number = parseNumber(text);
    if (!number || *number < property.minimum || *number > property.maximum) {
        return std::nullopt;
    }
    if (property.type == UInt) {
        return static_cast<std::uint32_t>(*number);
    }
    return static_cast<std::int32_t>(*number);
}

bool hasTypeOf(const PropertyInfo& property, const Value& value)
{
    switch (property.type) {
    case Int:
        return std::holds_alternative<std::int32_t>(value);
    case UInt:
        return std::holds_alternative<std::uint32_t>(value);
    case Bool:
        return std::holds_alternative<bool>(value);
    case Double:
        return std::holds_alternative<double>(value);
    case Text:
        return std::holds_alternative<std::string>(value);
    case Record:
        break;
    }
    return std::holds_alternative<std::vector<Field>>(value);
}

double numberOf(const Value& value)
{
    return std::visit(
        [](const auto& held) -> double {
            if constexpr (std::is_arithmetic_v<std::decay_t<decltype(held)>>) {
                return static_cast<double>(held);
            } else {
                return 0.0;
            }
        },
        value);
}

std::string toText(const Value& value)
{
    const auto json = [&value] {
        return QJsonDocument::fromVariant(toVariant(value))
            .toJson(QJsonDocument::Compact)
            .toStdString();
    };
    return std::visit(Overload{
                          [](std::monostate) { return std::string(); },
                          [](bool flag) { return std::string(flag ? "true" : "false"); },
                          [](double number) { return textOf(number); },
                          [](const std::string& text) { return text; },
                          [&json](const std::vector<std::int32_t>&) { return json(); },
                          [&json](const std::vector<Field>&) { return json(); },
                          [](auto number) { return std::to_string(number); },
                      },
                      value);
}

} // namespace zrn
