#include "command_line.h"
#include "common/virtual_run.h"
#include "completion.h"
#include "failures.h"
#include "interrupt.h"

#include <QCoreApplication>
#include <QLoggingCategory>

#include <string_view>

namespace
{

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
    if (options.areSeveral()) {
        report.setList({}); // also when it does not come to the first of them
    }
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

int complete(const CommandDescription& program, const std::vector<std::string>& words)
{
    for (const std::string& line : completionsFor(program, words)) {
        std::printf("%s\n", line.c_str());
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication application(argc, argv);
    CommandLine commandLine;
    if (argc > 1 && std::string_view(argv[1]) == completionCommand) {
        return complete(commandLine.description(), {argv + 2, argv + argc});
    }
    if (const std::optional<int> exitCode = commandLine.parse(argc, argv)) {
        return *exitCode;
    }
    const GlobalOptions& options = commandLine.options();
    const Command& command = commandLine.command();
    if (options.areSeveral() && !command.takesSeveral) {
        std::fprintf(stderr, "zrncam: %s works on one camera at a time\n",
                     commandLine.commandName().c_str());
        return static_cast<int>(ExitCode::Usage);
    }
    if (!options.virtualModels.empty() && !zrnhost::onVirtualCameras()) {
        return static_cast<int>(runVirtually(options, {argv, argv + argc}));
    }
    setUpLogging(options.verbose);
    return static_cast<int>(run(command, options));
}
