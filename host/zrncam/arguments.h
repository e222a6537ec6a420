#pragma once

#include <string>
#include <utility>
#include <variant>
#include <vector>

// Only command_line.cpp sees the library that reads command lines: its headers take seconds to
// compile.
namespace CLI
{
class App;
}

/// What a number counts; times may come with another unit, "2ms" for 2000 microseconds.
enum class Unit { None, Microseconds, Milliseconds, Seconds };

/// How an option or an argument is shown and checked.
struct ArgumentRules {
    std::string valueName = {}; ///< in the help text; the name of its type if empty
    bool isRequired = false;
    bool showsDefault = false;
    Unit unit = Unit::None;
    std::vector<std::string> choices = {}; ///< of a text; any if empty
    std::variant<std::monostate, std::pair<int, int>, std::pair<double, double>> range = {};
};

/// @param example of its use: words that follow the program's name
CLI::App& addSubcommand(CLI::App& app, const char* name, const char* description,
                        const char* example);

/// @param names  the spellings of an option, "-n,--frames", or the name of an argument
/// @param value  int, double, std::string, or an optional int, double, unsigned int or unsigned
/// short
template <typename Value>
void addArgument(CLI::App& command, const char* names, Value& value, const char* description,
                 const ArgumentRules& rules = {});

void addFlag(CLI::App& command, const char* names, bool& value, const char* description);
