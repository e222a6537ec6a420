#include "failures.h"

#include "client/error.h"
#include "client/plugin_file.h"
#include "tool_error.h"

namespace
{

ExitCode exitCodeFor(const zrn::Error& error)
{
    switch (error.kind()) {
    case zrn::Error::Kind::Plugin:
        return ExitCode::Plugin;
    case zrn::Error::Kind::NoCamera:
        return ExitCode::NoCamera;
    case zrn::Error::Kind::Recording:
        return ExitCode::Output;
    case zrn::Error::Kind::Refused:
        break;
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

/// The command of this tool that helps a user on, to follow the library's advice.
QString commandFor(const zrn::Error& error)
{
    const std::string& name = error.name();
    if (name == "NoSuchSerial" || name == "NothingAtPort" || name == "SerialNotFound") {
        return QStringLiteral("; 'zrncam list' shows them");
    }
    if (name == "NoSuchIndex" || name == "IndexNotFound") {
        return QStringLiteral("; 'zrncam list' shows the cameras on the bus");
    }
    if (name == "NotSupported") {
        return QStringLiteral("; 'zrncam properties' shows it");
    }
    if (name == "BadArgument") {
        return QStringLiteral("; 'zrncam info' shows it");
    }
    if (name == "OpenFailed" || name == "NoneFree" || name == "NothingEnumerated" ||
        name == "StreamStartFailed") {
        return QStringLiteral("; 'zrncam doctor' looks for the usual causes");
    }
    return {};
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
        return withOption(error.remedy()) + commandFor(error);
    }
}

} // namespace

QString withOption(const std::string& remedy)
{
    return QString::fromStdString(remedy) +
           (QByteArray::fromStdString(remedy).endsWith(zrn::pluginVariable)
                ? QStringLiteral(" or with --plugin")
                : QString());
}

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
