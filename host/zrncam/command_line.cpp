#include "command_line.h"

#include "tool_error.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <numeric>
#include <optional>
#include <string_view>
#include <type_traits>
#include <utility>

namespace
{

struct UnitName {
    std::string_view name;
    double microseconds;
};
constexpr std::array unitNames = {
    UnitName{"us", 1},    UnitName{"\u00b5s", 1}, UnitName{"\u03bcs", 1},
    UnitName{"ms", 1000}, UnitName{"s", 1e6},     UnitName{"min", 60e6},
};

const char* nameOf(Unit unit)
{
    switch (unit) {
    case Unit::Microseconds:
        return "us";
    case Unit::Milliseconds:
        return "ms";
    case Unit::Seconds:
        return "s";
    case Unit::None:
        break;
    }
    return "";
}

/// How many of a unit one of the named ones is; nothing when it is no unit of time.
std::optional<double> factorOf(std::string_view name, Unit unit)
{
    const auto find = [](std::string_view wanted) {
        return std::ranges::find(unitNames, wanted, &UnitName::name);
    };
    const auto given = find(name);
    const auto base = find(nameOf(unit));
    return given == unitNames.end() || base == unitNames.end()
               ? std::nullopt
               : std::optional(given->microseconds / base->microseconds);
}

/// The numbers that an argument may have.
struct Bounds {
    double lower;
    double upper;
    bool isWhole;
};

std::string plainText(double number)
{
    std::array<char, 32> text{};
    return {text.data(), std::to_chars(text.data(), text.data() + text.size(), number).ptr};
}

/// Replaces a text by the number that it stands for, in the unit that is wanted. @return empty, or
/// what is wrong with it
std::string readNumber(std::string& text, const Bounds& bounds, Unit unit)
{
    constexpr double rounding = 1e-6;
    double number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    const std::string_view suffix(rest, static_cast<std::size_t>(end - rest));
    const std::optional<double> factor =
        suffix.empty() ? std::optional(1.0) : factorOf(suffix, unit);
    if (error != std::errc() || !factor) {
        const std::string kind = bounds.isWhole ? "a whole number" : "a number";
        return '"' + text + "\" is not " + kind +
               (unit == Unit::None
                    ? std::string()
                    : std::string(" of ") + nameOf(unit) + ", nor one with us, ms, s or min");
    }
    number *= *factor;
    const double whole = std::round(number);
    if (bounds.isWhole && std::abs(number - whole) > rounding) {
        return text + " is not a whole number" +
               (unit == Unit::None ? std::string() : std::string(" of ") + nameOf(unit));
    }
    if (!(number >= bounds.lower && number <= bounds.upper)) {
        return text + " is not in the range of " + plainText(bounds.lower) + " to " +
               plainText(bounds.upper) +
               (unit == Unit::None ? std::string() : std::string(" ") + nameOf(unit));
    }
    text = bounds.isWhole ? std::to_string(static_cast<std::int64_t>(whole)) : plainText(number);
    return {};
}

CLI::Validator numberIn(const Bounds& bounds, Unit unit)
{
    return {[bounds, unit](std::string& text) { return readNumber(text, bounds, unit); }, ""};
}

CLI::Validator oneOf(const std::vector<std::string>& words)
{
    const auto judge = [words](const std::string& text) {
        std::string list;
        for (const std::string& word : words) {
            list += (list.empty() ? "" : " nor ") + word;
        }
        return std::ranges::find(words, text) == words.end() ? '"' + text + "\" is neither " + list
                                                             : std::string();
    };
    return {[judge](std::string& text) { return judge(text); }, ""};
}

template <typename Value>
struct NumberOf {
    using type = Value;
};
template <typename Value>
struct NumberOf<std::optional<Value>> {
    using type = Value;
};

template <typename Value>
Bounds boundsOf(const decltype(ArgumentRules::range)& range)
{
    using Number = typename NumberOf<Value>::type;
    using Limits = std::numeric_limits<Number>;
    Bounds bounds{static_cast<double>(Limits::lowest()), static_cast<double>(Limits::max()),
                  std::is_integral_v<Number>};
    if (const auto* whole = std::get_if<std::pair<int, int>>(&range)) {
        bounds = {static_cast<double>(whole->first), static_cast<double>(whole->second), true};
    } else if (const auto* real = std::get_if<std::pair<double, double>>(&range)) {
        bounds = {real->first, real->second, false};
    }
    return bounds;
}

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
                      ->type_name("N")
                      ->transform(numberIn({0, std::numeric_limits<int>::max(), true}, Unit::None))
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

/// How many letters have to be changed, added or left out to make one word of the other.
std::size_t distance(std::string_view a, std::string_view b)
{
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

/// The word that is most likely meant; empty when none is like it.
std::string nearest(const std::string& word, const std::vector<std::string>& words)
{
    constexpr std::size_t fewLetters = 2;
    std::string best;
    std::size_t least = std::max(fewLetters, word.size() / 3) + 1;
    for (const std::string& candidate : words) {
        const bool isBeginning = word.size() > fewLetters && candidate.starts_with(word);
        const std::size_t changes = isBeginning ? 1 : distance(word, candidate);
        if (changes < least) {
            least = changes;
            best = candidate;
        }
    }
    return best;
}

/// What the user is told of a word that nothing is known by.
ToolError unknownWord(const CLI::App& app, const CLI::App* command, const std::string& typed)
{
    const std::string word = typed.substr(0, typed.find('='));
    const bool isOption = word.starts_with('-');
    std::vector<std::string> words;
    for (const CLI::App* level : {&app, command}) {
        for (const ArgumentDescription& argument :
             level&& isOption ? describe(*level).arguments : std::vector<ArgumentDescription>()) {
            words.insert(words.end(), argument.names.begin(), argument.names.end());
        }
    }
    for (const CLI::App* subcommand :
         isOption || command ? std::vector<const CLI::App*>() : app.get_subcommands({})) {
        words.push_back(subcommand->get_name());
    }
    const std::string meant = nearest(word, words);
    const std::string name = command ? command->get_name() : std::string();
    const std::string message = isOption  ? "there is no option " + word
                                : command ? name + " takes no \"" + word + '"'
                                          : "there is no command \"" + word + '"';
    const std::string help =
        "'zrncam " + (command ? name + ' ' : std::string()) + "--help' shows what there is";
    return {ExitCode::Usage, QString::fromLocal8Bit(message.c_str()),
            QString::fromStdString(meant.empty() ? help : "did you mean " + meant + "? " + help)};
}

/// What the user is told of a command line that cannot be read.
ToolError mistakeIn(const CLI::App& app, const CLI::ParseError& error)
{
    const std::vector<CLI::App*> chosen = app.get_subcommands();
    const CLI::App* const command = chosen.empty() ? nullptr : chosen.front();
    const std::vector<std::string> unknown = app.remaining(true);
    const auto code = static_cast<CLI::ExitCodes>(error.get_exit_code());
    const bool isIncomplete =
        code == CLI::ExitCodes::RequiredError || code == CLI::ExitCodes::ExtrasError;
    if (isIncomplete && !unknown.empty()) {
        return unknownWord(app, command, unknown.front());
    }
    if (!command) {
        const bool isMissing = code == CLI::ExitCodes::RequiredError;
        return {ExitCode::Usage,
                isMissing ? QStringLiteral("a command is missing")
                          : QString::fromLocal8Bit(error.what()),
                QStringLiteral("'zrncam --help' shows the commands")};
    }
    std::string message = error.what();
    for (const ArgumentDescription& argument : describe(*command).arguments) {
        if (argument.isPositional && message == argument.valueName + " is required") {
            message += ": " + argument.description;
        }
    }
    const QString name = QString::fromStdString(command->get_name());
    return {ExitCode::Usage, QStringLiteral("%1: %2").arg(name, QString::fromStdString(message)),
            QStringLiteral("'zrncam %1 --help' shows what it takes").arg(name)};
}

} // namespace

CLI::App& addSubcommand(CLI::App& app, const char* name, const char* description,
                        const char* example)
{
    CLI::App& command = *app.add_subcommand(name, description);
    const auto isForAll = [](const CLI::Option* option) {
        return !option->check_lname("help") && !option->check_lname("version");
    };
    const std::string use = "Example:\n  zrncam " + std::string(example);
    command.footer([&program = std::as_const(app), isForAll, use] {
        return CLI::Formatter().make_group("Options of every command", false,
                                           program.get_options(isForAll)) +
               '\n' + use;
    });
    return command;
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
    if constexpr (!std::is_same_v<Value, std::string>) {
        option.transform(numberIn(boundsOf<Value>(rules.range), rules.unit));
    } else if (!rules.choices.empty()) {
        option.check(oneOf(rules.choices));
    }
    if (rules.showsDefault) {
        option.capture_default_str();
    }
}

template void addArgument(CLI::App&, const char*, int&, const char*, const ArgumentRules&);
template void addArgument(CLI::App&, const char*, double&, const char*, const ArgumentRules&);
template void addArgument(CLI::App&, const char*, std::string&, const char*, const ArgumentRules&);
template void addArgument(CLI::App&, const char*, std::optional<int>&, const char*,
                          const ArgumentRules&);
template void addArgument(CLI::App&, const char*, std::optional<double>&, const char*,
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
    m_commands = {addList(app),   addInfo(app),       addExposure(app), addGain(app),
                  addGrab(app),   addStream(app),     addRecord(app),   addGet(app),
                  addSet(app),    addProperties(app), addSettings(app), addDriverCommand(app),
                  addDoctor(app), addVerify(app)};
}

CommandLine::~CommandLine() = default;

std::optional<int> CommandLine::parse(int argc, char** argv)
{
    try {
        m_app->parse(argc, argv);
    } catch (const CLI::Success& answer) { // help or version
        return m_app->exit(answer);
    } catch (const CLI::ParseError& error) {
        throw mistakeIn(*m_app, error);
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
