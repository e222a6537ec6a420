#include "common/plugin_locator.h"
#include "doctor/findings.h"
#include "doctor/payload_probe.h"
#include "session.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>

#include <algorithm>
#include <memory>

namespace
{

struct DoctorOptions {
    std::string root;
};

std::optional<int> transferMemoryLimit(const QString& root)
{
    QFile file(root + QStringLiteral("/sys/module/usbcore/parameters/usbfs_memory_mb"));
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    bool ok = false;
    const int limit = file.readAll().trimmed().toInt(&ok);
    return ok ? std::optional(limit) : std::nullopt;
}

zrnhost::PluginInspection inspectChosenPlugin(const GlobalOptions& options)
{
    const auto candidates = zrnhost::pluginCandidates(
        QString::fromLocal8Bit(options.plugin.c_str()), QCoreApplication::applicationDirPath());
    const zrnhost::PluginCandidate chosen = zrnhost::choosePlugin(candidates);
    if (!chosen.path.isEmpty()) {
        return zrnhost::inspectPlugin(chosen.path);
    }
    zrnhost::PluginInspection nothing;
    nothing.fault = zrnhost::PluginFault::NotFound;
    nothing.message = QStringLiteral("the driver plugin was not found");
    return nothing;
}

/// Loads the driver and lets it enumerate, which opens cameras: the proof of all the rest.
Finding tryDriver(const QString& path, std::size_t onBus)
{
    try {
        zrnhost::DriverPlugin plugin(path);
        return judgeEnumeration(plugin.factory().enumDevice(), onBus);
    } catch (const zrnhost::PluginError& error) {
        return {
            QStringLiteral("plugin"), Verdict::Problem, QString::fromUtf8(error.what()),
            QStringLiteral("install the libraries that it misses ('ldd %1' lists them)").arg(path)};
    }
}

std::vector<Finding> examine(const GlobalOptions& options, const QString& root)
{
    std::vector<zrnhost::UsbCamera> cameras = zrnhost::camerasOnBus(root);
    const bool isThisSystem = root.isEmpty();
    if (isThisSystem) {
        for (zrnhost::UsbCamera& camera : cameras) {
            camera.payloadBytes = askPayloadBytes(camera);
        }
    }
    std::vector<Finding> findings = judgeBus(cameras);
    if (!cameras.empty()) {
        findings.push_back(judgeTransferMemory(cameras, transferMemoryLimit(root)));
    }
    const zrnhost::PluginInspection inspection = inspectChosenPlugin(options);
    const bool isUsable = inspection.fault == zrnhost::PluginFault::None;
    const std::vector<Finding> libraries =
        judgeLibraries(loadedLibraryVersions(isUsable ? inspection.path : QString()));
    findings.insert(findings.end(), libraries.begin(), libraries.end());
    findings.push_back(judgePlugin(inspection));
    if (isUsable && isThisSystem) {
        findings.push_back(tryDriver(inspection.path, cameras.size()));
    }
    return findings;
}

ExitCode runDoctor(Context& context, const DoctorOptions& options)
{
    const std::vector<Finding> findings =
        examine(context.options, QString::fromLocal8Bit(options.root.c_str()));
    QJsonArray list;
    for (const Finding& finding : findings) {
        const QString verdict = QLatin1String(verdictName(finding.verdict));
        context.report.line(QStringLiteral("%1 %2 %3")
                                .arg(QStringLiteral("[%1]").arg(verdict), -10)
                                .arg(finding.subject, -14)
                                .arg(finding.message));
        if (!finding.remedy.isEmpty()) {
            const QString indent = QStringLiteral("\n") + QString(15, QLatin1Char(' '));
            context.report.line(indent.mid(1) +
                                QString(finding.remedy).replace(QLatin1Char('\n'), indent));
        }
        list.append(QJsonObject{{QStringLiteral("subject"), finding.subject},
                                {QStringLiteral("verdict"), verdict},
                                {QStringLiteral("message"), finding.message},
                                {QStringLiteral("remedy"), finding.remedy}});
    }
    context.report.json()[QLatin1String("findings")] = list;
    const bool healthy = std::none_of(findings.begin(), findings.end(), [](const Finding& finding) {
        return finding.verdict == Verdict::Problem;
    });
    return healthy ? ExitCode::Success : ExitCode::ChecksFailed;
}

} // namespace

Command addDoctor(CLI::App& app)
{
    CLI::App* command = app.add_subcommand("doctor", "Find out why a camera cannot be used");
    const auto options = std::make_shared<DoctorOptions>();
    command->add_option("--root", options->root, "Judge the system files under DIR instead of /")
        ->type_name("DIR");
    return {command, [options](Context& context) { return runDoctor(context, *options); }};
}
