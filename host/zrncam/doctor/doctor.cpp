#include "client/driver.h"
#include "client/error.h"
#include "client/random_pause.h"
#include "doctor/findings.h"
#include "doctor/payload_probe.h"
#include "session.h"
#include "tool_error.h"

#include <QDir>
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

zrn::PluginInspection inspectChosenPlugin(const GlobalOptions& options)
{
    const zrn::PluginCandidate chosen = zrn::choosePlugin(zrn::pluginCandidates(options.plugin));
    if (!chosen.path.empty()) {
        return zrn::inspectPlugin(chosen.path);
    }
    zrn::PluginInspection nothing;
    nothing.fault = zrn::PluginFault::NotFound;
    nothing.message = "the driver plugin was not found";
    return nothing;
}

/// What the driver showed when it was loaded.
struct DriverTrial {
    std::vector<Finding> openings;
    QString
        guards; ///< what it says of its guards, which it sets up when it first looks for cameras
};

bool isInUseNow(const zrn::Driver& driver, const zrn::BusCamera& camera)
{
    const std::vector<zrn::BusCamera> cameras = driver.bus().camerasAndHolders();
    return std::any_of(cameras.begin(), cameras.end(), [&camera](const zrn::BusCamera& now) {
        return now.place() == camera.place() && now.use == zrn::Use::Held;
    });
}

/// Opens a camera by itself, and closes it again. Who else has it may only be looking at it for a
/// moment. @return nothing when somebody took it meanwhile
std::optional<Finding> tryCamera(zrn::Driver& driver, zrn::BusCamera camera)
{
    constexpr std::chrono::seconds patience(1);
    const auto end = std::chrono::steady_clock::now() + patience;
    camera.serial = driver.open(camera);
    while (camera.serial.empty() && std::chrono::steady_clock::now() < end) {
        zrn::pauseAtRandom();
        camera.serial = driver.open(camera);
    }
    if (camera.serial.empty() && isInUseNow(driver, camera)) {
        return std::nullopt;
    }
    if (!camera.serial.empty()) {
        driver.close(camera.serial);
    }
    return judgeOpening(camera, !camera.serial.empty());
}

/// Loads the driver and lets it open cameras: the proof of all the rest. Cameras that other
/// programs use are left alone where the driver can choose.
DriverTrial tryDriver(const std::string& path, const std::vector<zrn::BusCamera>& cameras)
{
    DriverTrial trial;
    try {
        const std::shared_ptr<zrn::Driver> driver = zrn::Driver::load(path);
        if (!driver->canChoose()) {
            trial.openings = {judgeEnumeration(driver->openAll(), cameras.size())};
        } else {
            for (const zrn::BusCamera& camera : cameras) {
                const std::optional<Finding> opening =
                    camera.use == zrn::Use::Held ? std::nullopt : tryCamera(*driver, camera);
                if (opening) {
                    trial.openings.push_back(*opening);
                }
            }
        }
        trial.guards = QString::fromStdString(driver->guards());
    } catch (const zrn::Error& error) {
        trial.openings = {{QStringLiteral("plugin"), Verdict::Problem,
                           QString::fromUtf8(error.what()),
                           QString::fromStdString(error.remedy())}};
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
    const zrn::PluginInspection inspection = inspectChosenPlugin(options);
    const bool isUsable = inspection.fault == zrn::PluginFault::None;
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
    const QString root = QString::fromLocal8Bit(options.root.c_str());
    if (!root.isEmpty() && !QDir(root).exists()) {
        throw ToolError(ExitCode::Usage, QStringLiteral("there is no folder %1").arg(root));
    }
    const std::vector<Finding> findings = examine(context.options, root);
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
    CLI::App& command =
        addSubcommand(app, "doctor", "Find out why a camera cannot be used", "doctor --json");
    const auto options = std::make_shared<DoctorOptions>();
    addArgument(command, "--root", options->root, "Judge the system files under DIR instead of /",
                {.valueName = "DIR"});
    return {&command, [options](Context& context) { return runDoctor(context, *options); }};
}
