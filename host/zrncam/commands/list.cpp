#include "commands/capture.h"
#include "common/driver_error.h"
#include "session.h"
#include "tool_error.h"

#include <QJsonArray>

namespace
{

ExitCode runList(Context& context)
{
    Session session(context.options);
    context.report.json()[QLatin1String("driver")] = session.driverJson();
    QJsonArray cameras;
    ExitCode exitCode = ExitCode::Success;
    for (int index = 0; index < session.cameraCount(); ++index) {
        QJsonObject entry{{QStringLiteral("index"), index}};
        try {
            zrnhost::Camera camera(session.factory());
            zrnhost::check(camera->connectDeviceByIndex(index),
                           QStringLiteral("connecting to camera %1").arg(index));
            const CameraIdentity identity = identify(camera);
            const QJsonObject fields = identity.json();
            for (auto field = fields.begin(); field != fields.end(); ++field) {
                entry[field.key()] = field.value();
            }
            context.report.line(QStringLiteral("%1  %2").arg(index).arg(identity.text()));
        } catch (const zrnhost::DriverError& error) {
            // One broken camera must not hide the others.
            entry[QLatin1String("error")] = QString::fromUtf8(error.what());
            entry[QLatin1String("code")] = static_cast<int>(error.code());
            context.report.line(
                QStringLiteral("%1  %2").arg(index).arg(QString::fromUtf8(error.what())));
            exitCode = ExitCode::Refused;
        }
        cameras.append(entry);
    }
    context.report.json()[QLatin1String("cameras")] = cameras;
    if (session.cameraCount() < 1) {
        throw ToolError(ExitCode::NoCamera, QStringLiteral("no camera found"), noCameraHint());
    }
    return exitCode;
}

} // namespace

Command addList(CLI::App& app)
{
    return {app.add_subcommand("list", "List the cameras: index, serial, image size"), runList};
}
