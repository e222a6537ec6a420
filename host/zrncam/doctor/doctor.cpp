#include "client/random_pause.h"
#include "common/device_opener.h"
#include "common/plugin_locator.h"
#include "doctor/findings.h"
#include "doctor/payload_probe.h"
#include "session.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>

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

/// What the driver showed when it was loaded.
struct DriverTrial {
    std::vector<Finding> openings;
    QString
        guards; ///< what it says of its guards, which it sets up when it first looks for cameras
};

QString guardsOf(IFactory& factory)
{
    return factory.property(IFactory::guardsProperty).toString();
}

bool isInUseNow(const zrn::Bus& bus, const zrn::BusCamera& camera)
{
    const std::vector<zrn::BusCamera> cameras = bus.camerasAndHolders();
    return std::any_of(cameras.begin(), cameras.end(), [&camera](const zrn::BusCamera& now) {
        return now.place() == camera.place() && now.use == zrn::Use::Held;
    });
}

/// Opens a camera by itself. Unloading the driver closes it again. Who else has it may only be
/// looking at it for a moment. @return nothing when somebody took it meanwhile
std::optional<Finding> tryCamera(const QString& path, zrn::Bus& bus, zrn::BusCamera camera,
                                 QString& guards)
{
    zrnhost::DriverPlugin plugin(path);
    zrnhost::DeviceOpener opener(plugin.factory(), [&bus] { return bus.camerasAndHolders(); });
    constexpr std::chrono::seconds patience(1);
    const auto end = std::chrono::steady_clock::now() + patience;
    QString serial = opener.open(camera);
    while (serial.isEmpty() && std::chrono::steady_clock::now() < end) {
        zrn::pauseAtRandom();
        serial = opener.open(camera);
    }
    guards = guardsOf(plugin.factory());
    if (serial.isEmpty() && isInUseNow(bus, camera)) {
        return std::nullopt;
    }
    bus.remember(camera, serial.toStdString());
    camera.serial = serial.toStdString();
    return judgeOpening(camera, !serial.isEmpty());
}

/// What the driver says when it is to open a camera at a place where there can be none.
QString guardsWithoutCamera(const QString& path)
{
    zrnhost::DriverPlugin plugin(path);
    plugin.factory().setProperty(IFactory::devicesProperty, QStringList{QStringLiteral("000/000")});
    plugin.factory().enumDevice();
    return guardsOf(plugin.factory());
}

/// Loads the driver and lets it open cameras: the proof of all the rest. Cameras that other
/// programs use are left alone where the driver can choose.
DriverTrial tryDriver(const QString& path, const std::vector<zrn::BusCamera>& cameras)
{
    DriverTrial trial;
    try {
        {
            zrnhost::DriverPlugin plugin(path);
            if (!zrnhost::DeviceOpener(plugin.factory(), {}).canChoose()) {
                trial.openings = {judgeEnumeration(plugin.factory().enumDevice(), cameras.size())};
                trial.guards = guardsOf(plugin.factory());
                return trial;
            }
        }
        zrn::Bus bus;
        for (const zrn::BusCamera& camera : cameras) {
            const std::optional<Finding> opening = camera.use == zrn::Use::Held
                                                       ? std::nullopt
                                                       : tryCamera(path, bus, camera, trial.guards);
            if (opening) {
                trial.openings.push_back(*opening);
            }
        }
        if (trial.guards.isEmpty()) {
            trial.guards = guardsWithoutCamera(path);
        }
    } catch (const zrnhost::PluginError& error) {
        trial.openings = {{QStringLiteral("plugin"), Verdict::Problem,
                           QString::fromUtf8(error.what()),
                           QStringLiteral("install the libraries that it misses ('ldd %1' lists "
                                          "them)")
                               .arg(path)}};
    }
    return trial;
}

std::vector<Finding> examine(const GlobalOptions& options, const QString& root)
{
    std::vector<zrn::BusCamera> cameras = zrn::Bus(root.toStdString()).camerasAndHolders();
    const bool isThisSystem = root.isEmpty();
    if (isThisSystem) {
        for (zrn::BusCamera& camera : cameras) {
            camera.payloadBytes = askPayloadBytes(camera);
        }
    }
    std::vector<Finding> findings = judgeBus(cameras);
    if (!cameras.empty()) {
        findings.push_back(judgeTransferMemory(cameras, transferMemoryLimit(root)));
    }
    const zrnhost::PluginInspection inspection = inspectChosenPlugin(options);
    const bool isUsable = inspection.fault == zrnhost::PluginFault::None;
    std::optional<DriverTrial> trial;
    if (isUsable && isThisSystem) {
        trial = tryDriver(inspection.path, cameras);
    }
    const QString guards = trial ? trial->guards : QString();
    const std::vector<Finding> libraries =
        judgeLibraries(loadedLibraryVersions(), guardsFrom(guards));
    findings.insert(findings.end(), libraries.begin(), libraries.end());
    findings.push_back(judgePlugin(inspection));
    if (trial) {
        findings.push_back(judgeGuards(guards));
        findings.insert(findings.end(), trial->openings.begin(), trial->openings.end());
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
    CLI::App& command = addSubcommand(app, "doctor", "Find out why a camera cannot be used");
    const auto options = std::make_shared<DoctorOptions>();
    addArgument(command, "--root", options->root, "Judge the system files under DIR instead of /",
                {.valueName = "DIR"});
    return {&command, [options](Context& context) { return runDoctor(context, *options); }};
}
