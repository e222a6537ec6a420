#include "common/camera_settings.h"
#include "session.h"
#include "tool_error.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include <memory>

namespace
{

constexpr const char* saveAction = "save";
constexpr const char* loadAction = "load";

struct SettingsOptions {
    std::string action;
    std::string file;
};

zrnhost::CameraSettings readFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        throw ToolError(ExitCode::Usage, QStringLiteral("%1: %2").arg(path, file.errorString()));
    }
    try {
        return zrnhost::settingsFromJson(file.readAll());
    } catch (const zrnhost::SettingsError& error) {
        throw ToolError(ExitCode::Usage,
                        QStringLiteral("%1: %2").arg(path, QString::fromUtf8(error.what())),
                        QStringLiteral("'zrncam settings save FILE' writes such files"));
    }
}

void tell(Report& report, const zrnhost::CameraSettings& settings)
{
    if (settings.exposure) {
        report.line(QStringLiteral("exposure"),
                    QStringLiteral("%1 us").arg(settings.exposure->count()));
    }
    if (settings.gain) {
        report.line(QStringLiteral("gain"), QString::number(*settings.gain));
    }
    for (const auto& [key, value] : settings.properties) {
        report.line(QString::fromStdString(key), QString::number(value));
    }
    report.json()[QLatin1String("settings")] =
        QJsonDocument::fromJson(zrnhost::toJson(settings)).object();
}

ExitCode runSettings(Context& context, const SettingsOptions& options)
{
    const QString path = QString::fromLocal8Bit(options.file.c_str());
    context.report.json()[QLatin1String("file")] = path;
    if (options.action == saveAction) {
        const zrnhost::CameraSettings settings =
            zrnhost::settingsOf(*Session(context.options).connect());
        writeResult(context.standardOutput, path, zrnhost::toJson(settings));
        tell(context.report, settings);
        return ExitCode::Success;
    }
    const zrnhost::CameraSettings settings = readFile(path); // before a camera is opened
    const CameraPointer camera = Session(context.options).connect();
    QStringList notes;
    try {
        notes = zrnhost::applySettings(settings, *camera);
    } catch (const zrnhost::SettingsError& error) {
        throw ToolError(ExitCode::Usage,
                        QStringLiteral("%1: %2").arg(path, QString::fromUtf8(error.what())),
                        QStringLiteral("nothing was set; 'zrncam info' shows the ranges"));
    }
    // What the camera holds now may differ from what it was sent.
    tell(context.report, zrnhost::settingsOf(*camera));
    for (const QString& note : notes) {
        context.report.line(note);
    }
    context.report.json()[QLatin1String("notes")] = QJsonArray::fromStringList(notes);
    return ExitCode::Success;
}

} // namespace

Command addSettings(CLI::App& app)
{
    CLI::App& command =
        addSubcommand(app, "settings", "Save a camera's settings to a file, or load them",
                      "settings save a.json");
    const auto options = std::make_shared<SettingsOptions>();
    addArgument(command, "ACTION", options->action, "save or load",
                {.isRequired = true, .choices = {saveAction, loadAction}});
    addArgument(command, "FILE", options->file,
                "A JSON document of settings; save to -: to standard output", {.isRequired = true});
    return {&command, [options](Context& context) { return runSettings(context, *options); }, false,
            [options] { return options->action == saveAction ? options->file : std::string(); }};
}
