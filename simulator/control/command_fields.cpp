#include "control/command_fields.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <optional>

namespace zrnsim
{

using nlohmann::json;

namespace
{

[[noreturn]] void refuse(const json& value, const std::string& expected)
{
    throw CommandError(textOf(value) + " is not " + expected);
}

bool isWholeNumber(const json& value, std::int64_t min, std::int64_t max)
{
    if (value.is_number_unsigned()) {
        const auto number = value.get<std::uint64_t>();
        return number <= static_cast<std::uint64_t>(std::max<std::int64_t>(max, 0)) &&
               (min <= 0 || number >= static_cast<std::uint64_t>(min));
    }
    return value.is_number_integer() && value.get<std::int64_t>() >= min &&
           value.get<std::int64_t>() <= max;
}

std::optional<std::uint64_t> serialOf(const json& value)
{
    if (value.is_number_integer() && value >= 0) {
        return value.get<std::uint64_t>();
    }
    const std::string text = value.is_string() ? value.get<std::string>() : std::string();
    std::uint64_t serial = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), serial);
    return error == std::errc{} && end == text.data() + text.size() ? std::optional(serial)
                                                                    : std::nullopt;
}

} // namespace

std::string textOf(const json& value)
{
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

std::string listOf(const std::vector<std::string_view>& names)
{
    std::string list;
    for (const std::string_view name : names) {
        list += (list.empty() ? "" : ", ") + std::string(name);
    }
    return list;
}

void checkFlag(const json& value)
{
    if (!value.is_boolean()) {
        refuse(value, "true or false");
    }
}

void checkText(const json& value)
{
    if (!value.is_string()) {
        refuse(value, "a text");
    }
}

void checkWord(const json& value, const std::vector<std::string_view>& words)
{
    checkText(value);
    const std::string word = value;
    if (std::find(words.begin(), words.end(), word) == words.end()) {
        refuse(value, "known; there are " + listOf(words));
    }
}

void checkByteList(const json& value)
{
    if (!value.is_array() || !std::all_of(value.begin(), value.end(), [](const json& byte) {
            return isWholeNumber(byte, 0, 255);
        })) {
        refuse(value, "a list of bytes, 0 to 255");
    }
}

void checkSerial(const json& value)
{
    if (!serialOf(value)) {
        refuse(value, "a number of 64 bits");
    }
}

void checkWholeNumber(const json& value, std::int64_t min, std::int64_t max)
{
    if (!isWholeNumber(value, min, max)) {
        refuse(value, "a whole number from " + std::to_string(min) + " to " + std::to_string(max));
    }
}

std::uint64_t parseSerial(const json& value)
{
    return serialOf(value).value_or(0);
}

void checkFields(const json& request, const std::vector<CommandField>& fields)
{
    for (const auto& [name, value] : request.items()) {
        if (name == "command") {
            continue;
        }
        const std::string& wanted = name;
        const auto field = std::find_if(fields.begin(), fields.end(), [&](const auto& candidate) {
            return candidate.name == wanted;
        });
        if (field == fields.end()) {
            std::vector<std::string_view> names;
            for (const CommandField& known : fields) {
                names.push_back(known.name);
            }
            throw CommandError("there is no field " + textOf(name) + "; " +
                               (names.empty() ? "there is none" : "there are " + listOf(names)));
        }
        try {
            field->check(value);
        } catch (const CommandError& error) {
            throw CommandError(name + ": " + error.what());
        }
    }
    for (const CommandField& field : fields) {
        if (field.isRequired && !request.contains(field.name)) {
            throw CommandError(std::string(field.name) + " is missing");
        }
    }
}

} // namespace zrnsim
