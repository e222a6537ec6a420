#include "failures.h"

#include "common/driver_error.h"
#include "common/driver_plugin.h"
#include "common/result_codes.h"
#include "tool_error.h"

namespace
{

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

} // namespace

ExitCode reportFailures(Report& report, const std::function<ExitCode()>& run)
{
    try {
        return run();
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
