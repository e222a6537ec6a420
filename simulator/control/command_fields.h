#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace zrnsim
{

/// A request that cannot be carried out; what() is a sentence for its sender.
class CommandError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// One field of a command. `check` throws a CommandError for a value that the field cannot hold.
struct CommandField {
    std::string_view name;
    void (*check)(const nlohmann::json& value);
    bool isRequired = false;
};

void checkFlag(const nlohmann::json& value);
void checkText(const nlohmann::json& value);
/// One of some words.
void checkWord(const nlohmann::json& value, const std::vector<std::string_view>& words);
void checkByteList(const nlohmann::json& value);
/// A number of 64 bits, also as a text.
void checkSerial(const nlohmann::json& value);
void checkWholeNumber(const nlohmann::json& value, std::int64_t min, std::int64_t max);

template <std::int64_t min, std::int64_t max>
void checkRange(const nlohmann::json& value)
{
    checkWholeNumber(value, min, max);
}

/// The number that checkSerial() has passed.
std::uint64_t parseSerial(const nlohmann::json& value);

/// Whether the request has the fields of its command, and no other beside "command".
/// @throws CommandError
void checkFields(const nlohmann::json& request, const std::vector<CommandField>& fields);

/// "a, b, c"
std::string listOf(const std::vector<std::string_view>& names);

/// The value as its sender wrote it.
std::string textOf(const nlohmann::json& value);

} // namespace zrnsim
