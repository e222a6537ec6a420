#include "client/camera_search.h"

#include "client/access_remedy.h"
#include "client/random_pause.h"

#include <algorithm>
#include <iterator>
#include <optional>

namespace zrn
{
namespace
{

using namespace std::chrono_literals;
using Kind = Error::Kind;

/// How long those who look for cameras themselves are in the way, as a rule.
constexpr auto othersLooks = 2s;
/// After this time the user is told what is being waited for.
constexpr auto silence = 1s;
constexpr const char* serialPrefix = "ZR";

Error noSuchSerial(const CameraChoice& choice)
{
    return {Kind::NoCamera, "NoSuchSerial", "no camera has the serial " + choice.serial,
            "compare it with the serials of the cameras on the bus"};
}

/// Repeats an attempt until it has a result or time is up. @param failure why it has none
template <typename Attempt, typename Failure>
auto persist(const SearchPatience& patience, const Attempt& attempt, const Failure& failure)
{
    const auto begin = std::chrono::steady_clock::now();
    bool isTold = false;
    for (;;) {
        if (auto result = attempt()) {
            return *result;
        }
        const auto waited = std::chrono::steady_clock::now() - begin;
        if (waited > patience.longest || patience.stop.stop_requested()) {
            // Whoever lets go now would make the reason untrue, so that it is found out first.
            const Error reason = failure();
            if (auto result = attempt()) {
                return *result;
            }
            throw reason;
        }
        if (waited > silence && !isTold && patience.onWaiting) {
            isTold = true;
            patience.onWaiting(failure());
        }
        pauseAtRandom();
    }
}

} // namespace

BusCamera CameraSearch::find(const CameraChoice& choice, const SearchPatience& patience)
{
    return persist(
        patience, [&] { return open(choice); }, [&] { return failureOf(choice); });
}

BusCamera CameraSearch::findNow(const CameraChoice& choice)
{
    const std::optional<BusCamera> camera = open(choice);
    if (!camera) {
        throw failureOf(choice);
    }
    return *camera;
}

std::vector<std::string> CameraSearch::freePorts(const SearchPatience& patience) const
{
    return persist(
        patience,
        [this]() -> std::optional<std::vector<std::string>> {
            std::vector<std::string> ports;
            for (const BusCamera& camera : candidates({})) {
                if (camera.isFree()) {
                    ports.push_back(camera.port);
                }
            }
            return ports.empty() ? std::nullopt : std::optional(ports);
        },
        [this] { return failureOf({}); });
}

std::vector<BusCamera> CameraSearch::candidates(const CameraChoice& choice) const
{
    const std::vector<BusCamera> cameras = m_driver.bus().camerasAndHolders();
    if (cameras.empty()) {
        throw noCameraOnBus();
    }
    if (choice.index >= 0) {
        const auto index = static_cast<std::size_t>(choice.index);
        if (index >= cameras.size()) {
            throw Error(Kind::NoCamera, "NoSuchIndex",
                        "there is no camera " + std::to_string(choice.index) +
                            "; cameras on the bus: " + std::to_string(cameras.size()),
                        "indices go from 0 to " + std::to_string(cameras.size() - 1));
        }
        return {cameras[index]};
    }
    const auto isAtPort = [&choice](const BusCamera& camera) { return camera.port == choice.port; };
    std::vector<BusCamera> result;
    if (choice.serial.empty()) {
        if (choice.port.empty()) {
            return cameras;
        }
        std::ranges::copy_if(cameras, std::back_inserter(result), isAtPort);
        if (result.empty()) {
            throw Error(Kind::NoCamera, "NothingAtPort", "no camera is at port " + choice.port,
                        "compare it with the ports of the cameras on the bus");
        }
        return result;
    }
    std::ranges::copy_if(cameras, std::back_inserter(result), [&choice](const BusCamera& camera) {
        return camera.serial == choice.serial;
    });
    const bool isKnown = !result.empty();
    if (!isKnown) {
        std::ranges::copy_if(cameras, std::back_inserter(result),
                             [](const BusCamera& camera) { return camera.serial.empty(); });
    }
    std::stable_partition(result.begin(), result.end(), isAtPort);
    // A camera that does not answer one of the requests is taken for another one. While some are
    // unknown that is less likely, and asking again would be in the way of others who look.
    if (!isKnown && (result.empty() || isLongSought(choice.serial))) {
        std::ranges::copy_if(cameras, std::back_inserter(result), [this](const BusCamera& camera) {
            return !camera.serial.empty() && camera.isFree() && m_driver.isDoubtful(camera);
        });
    }
    if (!result.empty()) {
        return result;
    }
    throw noSuchSerial(choice);
}

std::optional<BusCamera> CameraSearch::open(const CameraChoice& choice)
{
    noteSought(choice.serial);
    for (BusCamera& camera : candidates(choice)) {
        if (!camera.isFree()) {
            continue;
        }
        const std::string serial = m_driver.open(camera);
        if (serial.empty()) {
            continue;
        }
        if (choice.serial.empty() || serial == choice.serial) {
            noteFound(choice.serial);
            camera.serial = serial;
            return camera;
        }
        m_driver.close(serial);
    }
    return std::nullopt;
}

void CameraSearch::noteSought(const std::string& serial)
{
    const std::lock_guard lock(m_mutex);
    m_begins.try_emplace(serial, std::chrono::steady_clock::now());
}

void CameraSearch::noteFound(const std::string& serial)
{
    const std::lock_guard lock(m_mutex);
    m_begins.erase(serial);
}

bool CameraSearch::isLongSought(const std::string& serial) const
{
    const std::lock_guard lock(m_mutex);
    const auto begin = m_begins.find(serial);
    return begin != m_begins.end() &&
           std::chrono::steady_clock::now() - begin->second > othersLooks;
}

Error CameraSearch::failureOf(const CameraChoice& choice) const
{
    try {
        std::vector<BusCamera> cameras = candidates(choice);
        // Nothing is wrong with those that were only opened lest they be the one.
        std::erase_if(cameras, [&choice](const BusCamera& camera) {
            return !choice.serial.empty() && !camera.serial.empty() &&
                   camera.serial != choice.serial;
        });
        if (cameras.empty()) {
            return noSuchSerial(choice);
        }
        const BusCamera& first = cameras.front();
        const bool isLikely =
            choice.serial.empty() || !first.serial.empty() || first.port == choice.port;
        if (cameras.size() == 1 && isLikely) {
            return refusalOf(first);
        }
        std::vector<std::string> reasons;
        std::vector<std::string> remedies;
        for (const BusCamera& camera : cameras) {
            const Error refusal = refusalOf(camera);
            reasons.emplace_back(refusal.what());
            if (std::ranges::find(remedies, refusal.remedy()) == remedies.end()) {
                remedies.push_back(refusal.remedy());
            }
        }
        reasons.insert(reasons.end(), remedies.begin(), remedies.end());
        std::string advice;
        for (const std::string& part : reasons) {
            advice += (advice.empty() ? "" : "; ") + part;
        }
        const bool isAnyHeld = std::ranges::any_of(
            cameras, [](Use use) { return use == Use::Held; }, &BusCamera::use);
        const std::string message =
            !choice.serial.empty()
                ? "no camera that can be opened has the serial " + choice.serial
                : "none of the " + std::to_string(cameras.size()) + " cameras on the bus " +
                      (isAnyHeld ? "is free" : "can be opened");
        return {Kind::NoCamera, "NoneFree", message, advice};
    } catch (const Error& error) {
        return error;
    }
}

std::string serialNumberOf(const std::string& serial)
{
    return serial.substr(std::min(serial.size(), std::string_view(serialPrefix).size()));
}

std::string serialFromUser(const std::string& text)
{
    const bool isNumber =
        !text.empty() && std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
    return isNumber ? serialPrefix + text : text;
}

Error noCameraOnBus()
{
    std::string remedy = "no device ";
    remedy.append(cameraIds).append(" is on the bus; check cable and supply");
    return {Kind::NoCamera, "NoCameraOnBus", "no camera found", remedy};
}

bool isAbsence(const Error& error)
{
    return error.name() == "NoCameraOnBus" || error.name() == "NoSuchSerial";
}

std::string nameOf(const BusCamera& camera)
{
    return "the camera " + (camera.serial.empty() ? "" : camera.serial + ' ') + "at port " +
           camera.port;
}

Error refusalOf(const BusCamera& camera)
{
    if (!camera.nodeExists) {
        return {Kind::NoCamera, "NoDeviceNode",
                nameOf(camera) + " has no device node " + camera.node(), missingNodeRemedy()};
    }
    if (!camera.accessible) {
        return {Kind::NoCamera, "NoPermission",
                "this user may not open " + nameOf(camera) + ", " + camera.node(),
                accessRemedy(camera)};
    }
    if (camera.use == Use::Held && !camera.isHeldElsewhere()) {
        return {Kind::NoCamera, "InUse", nameOf(camera) + " is open in this program already",
                "close it there first, or use the one that is open"};
    }
    if (camera.use == Use::Held) {
        return {Kind::NoCamera, "InUse", nameOf(camera) + " is in use by " + camera.holderText(),
                "end that program, or wait until it is done with this camera"};
    }
    return {Kind::NoCamera, "OpenFailed", nameOf(camera) + " could not be opened", "replug it"};
}

} // namespace zrn
