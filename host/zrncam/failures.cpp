#include "failures.h"

#include "client/error.h"
#include "tool_error.h"

namespace
{

ExitCode exitCodeFor(const zrn::Error& error)
{
    if (error.kind() != zrn::Error::Kind::Refused) {
        return error.kind() == zrn::Error::Kind::Plugin ? ExitCode::Plugin : ExitCode::NoCamera;
    }
    switch (error.code()) {
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

/// What a user of this tool can do, where the library's advice is for a program.
QString hintOn(const zrn::Error& error)
{
    switch (error.code()) {
    case ErrorCode::GrabTimeout:
        return QStringLiteral("raise --wait above the exposure time; check the cable; 'zrncam "
                              "stream --keep-alive' restarts or reconnects the camera");
    case ErrorCode::NodeNotOpen:
        return QStringLiteral("it was unplugged, or another program took it; try again");
    case ErrorCode::SplitException:
    case ErrorCode::SplitFailed:
        return QStringLiteral("memory may be short: end other programs, then try again");
    default:
        return QString::fromStdString(error.remedy());
    }
}

} // namespace

ExitCode reportFailures(Report& report, const std::function<ExitCode()>& run)
{
    try {
        return run();
    } catch (const zrn::Error& error) {
        QJsonObject details;
        if (error.kind() == zrn::Error::Kind::Refused) {
            details = {{QStringLiteral("code"), static_cast<qint64>(error.code())},
                       {QStringLiteral("name"), QString::fromStdString(error.name())}};
        }
        return report.fail(exitCodeFor(error), QString::fromUtf8(error.what()), hintOn(error),
                           details);
    } catch (const ToolError& error) {
        return report.fail(error.exitCode(), QString::fromUtf8(error.what()), error.hint());
    } catch (const std::exception& error) {
        return report.fail(ExitCode::Failure, QString::fromUtf8(error.what()), QString());
    }
}
