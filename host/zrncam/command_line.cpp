#include "command_line.h"

#include "exit_codes.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <algorithm>
#include <limits>

namespace
{

void addGlobalOptions(CLI::App& app, GlobalOptions& options)
{
    app.add_flag("--json", options.json, "Write the result as one JSON document");
    app.add_flag("-v,--verbose", options.verbose,
                 "Show everything that the driver prints and logs");
    app.add_flag("-q,--quiet", options.quiet, "Show no progress");
    app.add_option("--plugin", options.plugin, "Driver plugin to load")->type_name("FILE");
    auto* serial =
        app.add_option("--serial", options.serials,
                       "Choose the camera by its serial; repeat for more where a command "
                       "takes several")
            ->type_name("SERIAL")
            ->expected(1)
            ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    auto* index = app.add_option("--index", options.index,
                                 "Choose the camera by its place in 'zrncam list' (default: the "
                                 "first that is free)")
                      ->check(CLI::Range(0, std::numeric_limits<int>::max()))
                      ->excludes(serial);
    auto* port = app.add_option("--port", options.port, "Choose the camera by its USB port")
                     ->type_name("PORT")
                     ->excludes(serial)
                     ->excludes(index);
    app.add_flag("--all", options.all, "Take every free camera, where a command takes several")
        ->excludes(serial)
        ->excludes(index)
        ->excludes(port);
    app.add_option("--virtual", options.virtualModels,
                   "Run on a virtual camera of this model, or the default one; repeat for more")
        ->type_name("[MODEL]")
        ->expected(0, 1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

void setRange(CLI::Option&, std::monostate) {}

template <typename Bound>
void setRange(CLI::Option& option, const std::pair<Bound, Bound>& range)
{
    option.check(CLI::Range(range.first, range.second));
}

ArgumentDescription describe(const CLI::Option& option)
{
    ArgumentDescription argument;
    for (const std::string& name : option.get_snames()) {
        argument.names.push_back('-' + name);
    }
    for (const std::string& name : option.get_lnames()) {
        argument.names.push_back("--" + name);
    }
    argument.isPositional = option.get_positional();
    argument.valueName = argument.isPositional ? option.get_single_name() : option.get_type_name();
    argument.description = option.get_description();
    argument.fewestValues = option.get_items_expected_min();
    argument.mostValues = option.get_items_expected_max();
    return argument;
}

CommandDescription describe(const CLI::App& app)
{
    CommandDescription command{app.get_name(), app.get_description(), {}, {}};
    for (const CLI::Option* option : app.get_options({})) {
        command.arguments.push_back(describe(*option));
    }
    for (const CLI::App* subcommand : app.get_subcommands({})) {
        command.subcommands.push_back(describe(*subcommand));
    }
    return command;
}

} // namespace

CLI::App& addSubcommand(CLI::App& app, const char* name, const char* description)
{
    return *app.add_subcommand(name, description);
}

template <typename Value>
void addArgument(CLI::App& command, const char* names, Value& value, const char* description,
                 const ArgumentRules& rules)
{
    CLI::Option& option = *command.add_option(names, value, description);
    if (!rules.valueName.empty()) {
        option.type_name(rules.valueName);
    }
    option.required(rules.isRequired);
    std::visit([&option](const auto& range) { setRange(option, range); }, rules.range);
    if (rules.showsDefault) {
        option.capture_default_str();
    }
}

template void addArgument(CLI::App&, const char*, int&, const char*, const ArgumentRules&);
template void addArgument(CLI::App&, const char*, double&, const char*, const ArgumentRules&);
template void addArgument(CLI::App&, const char*, std::string&, const char*, const ArgumentRules&);
template void addArgument(CLI::App&, const char*, std::optional<int>&, const char*,
                          const ArgumentRules&);
template void addArgument(CLI::App&, const char*, std::optional<unsigned int>&, const char*,
                          const ArgumentRules&);
template void addArgument(CLI::App&, const char*, std::optional<unsigned short>&, const char*,
                          const ArgumentRules&);

void addFlag(CLI::App& command, const char* names, bool& value, const char* description)
{
    command.add_flag(names, value, description);
}

CommandLine::CommandLine()
    : m_app(
          std::make_unique<CLI::App>("Works with ZRN USB cameras from the command line.", "zrncam"))
{
    CLI::App& app = *m_app;
    app.set_version_flag("--version", "zrncam " ZRNCAM_VERSION);
    app.require_subcommand(1);
    app.fallthrough();
    addGlobalOptions(app, m_options);
    m_commands = {addList(app),       addInfo(app),          addExposure(app), addGain(app),
                  addGrab(app),       addStream(app),        addGet(app),      addSet(app),
                  addProperties(app), addDriverCommand(app), addDoctor(app),   addVerify(app)};
}

CommandLine::~CommandLine() = default;

std::optional<int> CommandLine::parse(int argc, char** argv)
{
    try {
        m_app->parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return m_app->exit(error) == 0 ? 0 : static_cast<int>(ExitCode::Usage);
    }
    m_chosen = &*std::ranges::find_if(m_commands,
                                      [](const Command& command) { return command.app->parsed(); });
    return std::nullopt;
}

std::string CommandLine::commandName() const
{
    return m_chosen->app->get_name();
}

CommandDescription CommandLine::description() const
{
    return describe(*m_app);
}
