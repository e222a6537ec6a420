#include "client/doctor.h"

#include "client/driver.h"
#include "client/error.h"
#include "client/library_versions.h"
#include "client/payload_probe.h"
#include "client/random_pause.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>

namespace zrn
{
namespace
{

PluginInspection inspectChosenPlugin(const std::string& plugin)
{
    const PluginCandidate chosen = choosePlugin(pluginCandidates(plugin));
    if (!chosen.path.empty()) {
        return inspectPlugin(chosen.path);
    }
    PluginInspection nothing;
    nothing.fault = PluginFault::NotFound;
    nothing.message = "the driver plugin was not found";
    return nothing;
}

/// What the driver showed when it was loaded.
struct DriverTrial {
    std::vector<Finding> openings;
    /// What it says of its guards, which it sets up when it first looks for cameras.
    std::string guards;
};

bool isInUseNow(const Driver& driver, const BusCamera& camera)
{
    const std::vector<BusCamera> cameras = driver.bus().camerasAndHolders();
    return std::any_of(cameras.begin(), cameras.end(), [&camera](const BusCamera& now) {
        return now.place() == camera.place() && now.use == Use::Held;
    });
}

/// Opens a camera by itself, and closes it again. Who else has it may only be looking at it for a
/// moment. @return nothing when somebody took it meanwhile
std::optional<Finding> tryCamera(Driver& driver, BusCamera camera)
{
    constexpr std::chrono::seconds patience(1);
    const auto end = std::chrono::steady_clock::now() + patience;
    camera.serial = driver.open(camera);
    while (camera.serial.empty() && std::chrono::steady_clock::now() < end) {
        pauseAtRandom();
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
DriverTrial tryDriver(const std::string& path, const std::vector<BusCamera>& cameras)
{
    DriverTrial trial;
    try {
        const std::shared_ptr<Driver> driver = Driver::load(path);
        if (!driver->canChoose()) {
            trial.openings = {judgeEnumeration(driver->openAll(), cameras.size())};
        } else {
            for (const BusCamera& camera : cameras) {
                const std::optional<Finding> opening =
                    camera.use == Use::Held ? std::nullopt : tryCamera(*driver, camera);
                if (opening) {
                    trial.openings.push_back(*opening);
                }
            }
        }
        trial.guards = driver->guards();
    } catch (const Error& error) {
        trial.openings = {{"plugin", Verdict::Problem, error.what(), error.remedy()}};
    }
    return trial;
}

} // namespace

std::vector<Finding> examine(const std::string& plugin, const std::string& root)
{
    std::vector<BusCamera> cameras = Bus(root).camerasAndHolders();
    const bool isThisSystem = root.empty();
    if (isThisSystem) {
        for (BusCamera& camera : cameras) {
            camera.payloadBytes = askPayloadBytes(camera);
        }
    }
    std::vector<Finding> findings = judgeBus(cameras);
    for (const BusCamera& camera : cameras) {
        findings.push_back(judgeSpeed(camera));
        if (const std::optional<Finding> suspension = judgeAutosuspend(camera, root)) {
            findings.push_back(*suspension);
        }
    }
    if (!cameras.empty()) {
        findings.push_back(judgeTransferMemory(cameras, transferMemoryLimit(root)));
    }
    const PluginInspection inspection = inspectChosenPlugin(plugin);
    const bool isUsable = inspection.fault == PluginFault::None;
    std::optional<DriverTrial> trial;
    if (isUsable && isThisSystem) {
        trial = tryDriver(inspection.path, cameras);
    }
    const std::string guards = trial ? trial->guards : std::string();
    const std::vector<Finding> libraries =
        judgeLibraries(loadedLibraryVersions(), guardsFrom(guards));
    findings.insert(findings.end(), libraries.begin(), libraries.end());
    findings.push_back(judgePlugin(inspection));
    if (trial) {
        findings.push_back(judgeGuards(guards));
        findings.insert(findings.end(), trial->openings.begin(), trial->openings.end());
    }
    if (isThisSystem) {
        findings.push_back(judgeClock(SystemClock::ask()));
    }
    return findings;
}

} // namespace zrn
