#pragma once

#include "command.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

/// An option, or an argument that stands for itself.
struct ArgumentDescription {
    std::vector<std::string> names; ///< as they are typed: "-n", "--frames"
    std::string valueName;          ///< of the kind of its values, or of the argument
    std::string description;
    int fewestValues = 0;
    int mostValues = 0;
    bool isPositional = false;
};

/// The program, or one of its subcommands.
struct CommandDescription {
    std::string name;
    std::string description;
    std::vector<ArgumentDescription> arguments;
    std::vector<CommandDescription> subcommands;
};

/// Everything that zrncam's command line may hold.
class CommandLine
{
public:
    CommandLine();
    ~CommandLine();

    /// @return how the program ends, if it does with this: help or version, which it has printed
    /// @throws ToolError on a mistake
    std::optional<int> parse(int argc, char** argv);

    [[nodiscard]] const GlobalOptions& options() const { return m_options; }
    /// The subcommand that parse() has found.
    [[nodiscard]] const Command& command() const { return *m_chosen; }
    [[nodiscard]] std::string commandName() const;

    [[nodiscard]] CommandDescription description() const;

private:
    GlobalOptions m_options;
    std::unique_ptr<CLI::App> m_app;
    std::vector<Command> m_commands;
    const Command* m_chosen = nullptr;
};
