#include "command.h"
#include "common/virtual_run.h"
#include "completion.h"
#include "failures.h"
#include "interrupt.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <QCoreApplication>
#include <QLoggingCategory>

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

/// Only what went wrong is worth a line, unless the user asks for more.
void setUpLogging(bool verbose)
{
    if (!verbose) {
        QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false\n*.info=false"));
    }
    if (!qEnvironmentVariableIsSet("QT_MESSAGE_PATTERN")) {
        qSetMessagePattern(QStringLiteral("%{category}: %{message}"));
    }
}

/// Keeps standard output for the result while the command runs.
ExitCode run(const Command& command, const GlobalOptions& options)
{
    std::FILE* results = reserveStandardOutput(options.verbose);
    if (!results) {
        std::perror("zrncam: standard output");
        return ExitCode::Output;
    }
    Report report(options.json, results);
    Interrupt interrupt;
    Context context{options, report, interrupt};
    const ExitCode exitCode =
        report.finish(reportFailures(report, [&] { return command.run(context); }));
    return std::fclose(results) == 0 ? exitCode : ExitCode::Output;
}

ExitCode runVirtually(const GlobalOptions& options, const std::vector<std::string>& arguments)
{
    try {
        zrnhost::runOnVirtualCameras(options.virtualModels, arguments);
    } catch (const zrnhost::VirtualRunError& error) {
        Report report(options.json, stdout);
        return report.finish(
            report.fail(ExitCode::VirtualCamera, QString::fromUtf8(error.what()), error.hint()));
    }
}

int complete(const CLI::App& app, const std::vector<std::string>& words)
{
    for (const std::string& line : completionsFor(app, words)) {
        std::printf("%s\n", line.c_str());
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    CLI::App app("Works with ZRN USB cameras from the command line.", "zrncam");
    app.set_version_flag("--version", "zrncam " ZRNCAM_VERSION);
    app.require_subcommand(1);
    app.fallthrough();
    GlobalOptions options;
    addGlobalOptions(app, options);
    const std::vector<Command> commands{addList(app),          addInfo(app),   addExposure(app),
                                        addGain(app),          addGrab(app),   addStream(app),
                                        addGet(app),           addSet(app),    addProperties(app),
                                        addDriverCommand(app), addDoctor(app), addVerify(app)};
    if (argc > 1 && std::string_view(argv[1]) == completionCommand) {
        return complete(app, {argv + 2, argv + argc});
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : static_cast<int>(ExitCode::Usage);
    }
    const auto chosen = std::find_if(commands.begin(), commands.end(),
                                     [](const Command& command) { return command.app->parsed(); });
    if (options.areSeveral() && !chosen->takesSeveral) {
        std::fprintf(stderr, "zrncam: %s works on one camera at a time\n",
                     chosen->app->get_name().c_str());
        return static_cast<int>(ExitCode::Usage);
    }
    if (!options.virtualModels.empty() && !zrnhost::onVirtualCameras()) {
        return static_cast<int>(runVirtually(options, {argv, argv + argc}));
    }
    setUpLogging(options.verbose);
    return static_cast<int>(run(*chosen, options));
}
