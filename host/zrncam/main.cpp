#include "command_line.h"
#include "common/interrupt.h"
#include "common/library_noise.h"
#include "common/virtual_run.h"
#include "completion.h"
#include "failures.h"
#include "tool_error.h"
#include "triggers.h"

#include <QCoreApplication>

#include <algorithm>
#include <csignal>
#include <string_view>

namespace
{

void setUpLogging(bool verbose)
{
    if (!verbose) {
        zrnhost::silenceLibraries();
    }
    if (!qEnvironmentVariableIsSet("QT_MESSAGE_PATTERN")) {
        qSetMessagePattern(QStringLiteral("%{category}: %{message}"));
    }
}

/// Whether standard output is for the command's file or frames, and not for the report.
bool writesToStandardOutput(const Command& command)
{
    const std::string output = command.output ? command.output() : std::string();
    return output == "-" || output == "/dev/stdout";
}

/// Keeps standard output for the result while the command runs.
ExitCode run(const Command& command, const GlobalOptions& options)
{
    std::FILE* results = reserveStandardOutput(options.verbose);
    if (!results) {
        std::perror("zrncam: standard output");
        return ExitCode::Output;
    }
    const bool isTaken = writesToStandardOutput(command);
    Report report(options.json, isTaken ? stderr : results);
    if (options.areSeveral()) {
        report.setList({}); // also when it does not come to the first of them
    }
    if (command.takesTriggers) {
        Triggers::blockSignal();
    }
    zrnhost::Interrupt interrupt;
    Context context{options, report, interrupt, isTaken ? results : nullptr};
    const ExitCode exitCode =
        report.finish(reportFailures(report, [&] { return command.run(context); }));
    // What frames are left there, nobody wants to read.
    const bool isWritten = std::fclose(results) == 0 || isTaken;
    return isWritten ? exitCode : ExitCode::Output;
}

/// @throws ToolError
[[noreturn]] void runVirtually(const GlobalOptions& options,
                               const std::vector<std::string>& arguments)
{
    try {
        zrnhost::runOnVirtualCameras(options.virtualModels, arguments);
    } catch (const zrnhost::VirtualRunError& error) {
        throw ToolError(error.isWrongModel() ? ExitCode::Usage : ExitCode::VirtualCamera,
                        QString::fromUtf8(error.what()), error.hint());
    }
}

/// Reads the command line, and gets ready what it asks for. @return how the program ends, if it has
/// done with that @throws ToolError
std::optional<int> prepare(CommandLine& commandLine, int argc, char** argv)
{
    if (const std::optional<int> exitCode = commandLine.parse(argc, argv)) {
        return exitCode;
    }
    const GlobalOptions& options = commandLine.options();
    if (options.areSeveral() && !commandLine.command().takesSeveral) {
        throw ToolError(ExitCode::Usage,
                        QStringLiteral("%1 works on one camera at a time")
                            .arg(QString::fromStdString(commandLine.commandName())),
                        QStringLiteral("choose it by --serial, --port or --index"));
    }
    if (options.areSeveral() && writesToStandardOutput(commandLine.command())) {
        throw ToolError(ExitCode::Usage,
                        QStringLiteral("the frames of one camera at a time go to a pipe"),
                        QStringLiteral("choose it by --serial, --port or --index"));
    }
    if (!options.virtualModels.empty() && !zrnhost::onVirtualCameras()) {
        runVirtually(options, {argv, argv + argc});
    }
    return std::nullopt;
}

/// Tells of a command that cannot be begun, as of one that fails.
int refuse(const ToolError& error, bool asJson)
{
    Report report(asJson, stdout);
    return static_cast<int>(report.finish(
        report.fail(error.exitCode(), QString::fromUtf8(error.what()), error.hint())));
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
    try {
        if (const std::optional<int> exitCode = prepare(commandLine, argc, argv)) {
            return *exitCode;
        }
    } catch (const ToolError& error) {
        const auto isJson = [](std::string_view word) { return word == "--json"; };
        return refuse(error, std::any_of(argv, argv + argc, isJson));
    }
    const GlobalOptions& options = commandLine.options();
    std::signal(SIGXFSZ, SIG_IGN); // an error of the write instead, so that files end in order
    setUpLogging(options.verbose);
    return static_cast<int>(run(commandLine.command(), options));
}
