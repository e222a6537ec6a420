#include "client/doctor.h"

#include "client/bus.h"
#include "failures.h"
#include "session.h"
#include "tool_error.h"

#include <QDateTime>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSysInfo>

#include <algorithm>
#include <memory>

namespace
{

struct DoctorOptions {
    std::string root;
    std::string bundle; ///< file for a report to send; empty: none
};

/// What whoever looks for a fault elsewhere asks for first.
QJsonObject describeSystem(const std::string& root)
{
    QJsonArray cameras;
    for (const zrn::BusCamera& camera : zrn::Bus(root).camerasAndHolders()) {
        cameras.append(QJsonObject{
            {QStringLiteral("port"), QString::fromStdString(camera.port)},
            {QStringLiteral("node"), QString::fromStdString(camera.node())},
            {QStringLiteral("serial"), QString::fromStdString(camera.serial)},
            {QStringLiteral("megabits"), camera.megabits},
            {QStringLiteral("accessible"), camera.accessible},
            {QStringLiteral("holders"), QString::fromStdString(camera.holderText())},
            {QStringLiteral("descriptors"),
             QString::fromLatin1(QByteArray::fromStdString(camera.descriptors).toHex())}});
    }
    QJsonObject environment;
    for (const char* name : {"ZRNCAM_PLUGIN", "QT_PLUGIN_PATH", "QT_LOGGING_RULES", "LD_PRELOAD",
                             "LD_LIBRARY_PATH", "LIBUSB_DEBUG"}) {
        if (qEnvironmentVariableIsSet(name)) {
            environment[QLatin1String(name)] = qEnvironmentVariable(name);
        }
    }
    return {{QStringLiteral("zrncam"), QStringLiteral(ZRNCAM_VERSION)},
            {QStringLiteral("qt"), QString::fromLatin1(qVersion())},
            {QStringLiteral("time"), QDateTime::currentDateTimeUtc().toString(Qt::ISODate)},
            {QStringLiteral("system"), QSysInfo::prettyProductName()},
            {QStringLiteral("kernel"), QSysInfo::kernelVersion()},
            {QStringLiteral("architecture"), QSysInfo::currentCpuArchitecture()},
            {QStringLiteral("environment"), environment},
            {QStringLiteral("cameras"), cameras}};
}

/// @throws ToolError
void writeBundle(const Context& context, const DoctorOptions& options)
{
    Report& report = context.report;
    const QString path = QString::fromLocal8Bit(options.bundle.c_str());
    QJsonObject bundle = describeSystem(options.root);
    bundle[QLatin1String("findings")] = report.json()[QLatin1String("findings")];
    writeResult(context.standardOutput, path, QJsonDocument(bundle).toJson());
    report.line(QStringLiteral("the report to send is %1; it holds what is shown here, serials and "
                               "descriptors of the cameras, and versions")
                    .arg(path));
    report.json()[QLatin1String("bundle")] = path;
}

ExitCode runDoctor(Context& context, const DoctorOptions& options)
{
    const QString root = QString::fromLocal8Bit(options.root.c_str());
    if (!root.isEmpty() && !QDir(root).exists()) {
        throw ToolError(ExitCode::Usage, QStringLiteral("there is no folder %1").arg(root));
    }
    const std::vector<zrn::Finding> findings = zrn::examine(context.options.plugin, options.root);
    QJsonArray list;
    for (const zrn::Finding& finding : findings) {
        const QString subject = QString::fromStdString(finding.subject);
        const QString verdict = QLatin1String(zrn::verdictName(finding.verdict));
        const QString message = QString::fromStdString(finding.message);
        QString remedy = withOption(finding.remedy);
        list.append(QJsonObject{{QStringLiteral("subject"), subject},
                                {QStringLiteral("verdict"), verdict},
                                {QStringLiteral("message"), message},
                                {QStringLiteral("remedy"), remedy}});
        context.report.line(QStringLiteral("%1 %2 %3")
                                .arg(QStringLiteral("[%1]").arg(verdict), -10)
                                .arg(subject, -14)
                                .arg(message));
        if (!remedy.isEmpty()) {
            const QString indent = QStringLiteral("\n") + QString(15, QLatin1Char(' '));
            context.report.line(indent.mid(1) + remedy.replace(QLatin1Char('\n'), indent));
        }
    }
    context.report.json()[QLatin1String("findings")] = list;
    if (!options.bundle.empty()) {
        writeBundle(context, options);
    }
    const bool healthy =
        std::none_of(findings.begin(), findings.end(), [](const zrn::Finding& finding) {
            return finding.verdict == zrn::Verdict::Problem;
        });
    return healthy ? ExitCode::Success : ExitCode::ChecksFailed;
}

} // namespace

Command addDoctor(CLI::App& app)
{
    CLI::App& command =
        addSubcommand(app, "doctor", "Find out why a camera cannot be used", "doctor --json");
    const auto options = std::make_shared<DoctorOptions>();
    addArgument(command, "--root", options->root, "Judge the system files under DIR instead of /",
                {.valueName = "DIR"});
    addArgument(
        command, "--bundle", options->bundle,
        "Write all of it, and what the system is, to a file for whoever helps; -: to standard "
        "output",
        {.valueName = "FILE"});
    return {&command, [options](Context& context) { return runDoctor(context, *options); }, false,
            [options] { return options->bundle; }};
}
