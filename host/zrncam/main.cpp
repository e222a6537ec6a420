#include "command.h"
#include "common/driver_error.h"
#include "common/driver_plugin.h"
#include "common/result_codes.h"
#include "common/virtual_run.h"
#include "interrupt.h"
#include "tool_error.h"

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
    auto* serial = app.add_option("--serial", options.serial, "Choose the camera by its serial");
    app.add_option("--index", options.index, "Choose the camera by its index (default: the first)")
        ->check(CLI::Range(0, std::numeric_limits<int>::max()))
        ->excludes(serial);
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

ExitCode exitCodeFor(ErrorCode code)
{
    switch (code) {
    case ErrorCode::SerialNotFound:
    case ErrorCode::IndexNotFound:
    case ErrorCode::NodeNotOpen:
    case ErrorCode::NothingEnumerated:
        return ExitCode::NoCamera;
    case ErrorCode::SplitException:
    case ErrorCode::NotStreaming:
    case ErrorCode::GrabTimeout:
    case ErrorCode::SplitFailed:
    case ErrorCode::StreamStartFailed:
        return ExitCode::Stream;
    default:
        return ExitCode::Refused;
    }
}

ExitCode runCommand(const Command& command, Context& context)
{
    Report& report = context.report;
    try {
        return report.finish(command.run(context));
    } catch (const zrnhost::DriverError& error) {
        const zrnhost::ResultCodeInfo* info = zrnhost::findResultCode(error.code());
        return report.fail(
            exitCodeFor(error.code()), QString::fromUtf8(error.what()), error.remedy(),
            {{QStringLiteral("code"), static_cast<qint64>(error.code())},
             {QStringLiteral("name"), QLatin1String(info ? info->name : "Unknown")}});
    } catch (const zrnhost::PluginError& error) {
        return report.fail(ExitCode::Plugin, QString::fromUtf8(error.what()),
                           QStringLiteral("'zrncam doctor' says more about plugin and libraries"));
    } catch (const ToolError& error) {
        return report.fail(error.exitCode(), QString::fromUtf8(error.what()), error.hint());
    } catch (const std::exception& error) {
        return report.fail(ExitCode::Failure, QString::fromUtf8(error.what()), QString());
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
    const ExitCode exitCode = runCommand(command, context);
    return std::fclose(results) == 0 ? exitCode : ExitCode::Output;
}

ExitCode runVirtually(const GlobalOptions& options, const std::vector<std::string>& arguments)
{
    try {
        zrnhost::runOnVirtualCameras(options.virtualModels, arguments);
    } catch (const zrnhost::VirtualRunError& error) {
        return Report(options.json, stdout)
            .fail(ExitCode::VirtualCamera, QString::fromUtf8(error.what()), error.hint());
    }
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
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : static_cast<int>(ExitCode::Usage);
    }
    if (!options.virtualModels.empty() && !zrnhost::onVirtualCameras()) {
        return static_cast<int>(runVirtually(options, {argv, argv + argc}));
    }
    setUpLogging(options.verbose);
    const auto chosen = std::find_if(commands.begin(), commands.end(),
                                     [](const Command& command) { return command.app->parsed(); });
    return static_cast<int>(run(*chosen, options));
}
