#include "camera_search.h"

#include "client/access_remedy.h"
#include "client/random_pause.h"
#include "progress.h"

#include <algorithm>
#include <chrono>
#include <iterator>

namespace
{

using namespace std::chrono_literals;

/// How long others may be in the way. A look at a camera takes them some tenths of a second.
constexpr auto patience = 3s;
/// How long those who look for cameras themselves are in the way, as a rule.
constexpr auto othersLooks = 2s;
/// After this time the user is told what is being waited for.
constexpr auto silence = 1s;
/// How long what a camera gave for its serial is taken for granted, once it was asked again.
constexpr auto trust = 60s;

bool isUsable(const zrn::BusCamera& camera)
{
    return camera.accessible && camera.use != zrn::Use::Held;
}

} // namespace

template <typename Attempt>
auto CameraSearch::persist(const CameraChoice& choice, const Attempt& attempt)
{
    Progress progress(m_quiet);
    const auto begin = std::chrono::steady_clock::now();
    bool isTold = false;
    for (;;) {
        if (auto result = attempt()) {
            return *result;
        }
        const auto waited = std::chrono::steady_clock::now() - begin;
        if (waited > patience) {
            throw failureOf(choice);
        }
        if (waited > silence && !isTold) {
            isTold = true;
            progress.note(
                QStringLiteral("waiting: %1").arg(QString::fromUtf8(failureOf(choice).what())));
        }
        zrn::pauseAtRandom();
    }
}

QString CameraSearch::find(const CameraChoice& choice)
{
    return persist(choice, [&] { return findNow(choice); });
}

std::optional<QString> CameraSearch::findNow(const CameraChoice& choice)
{
    {
        const std::lock_guard lock(m_mutex);
        m_begins.try_emplace(choice.serial, std::chrono::steady_clock::now());
    }
    const std::optional<QString> serial = open(choice, candidates(choice));
    if (serial) {
        const std::lock_guard lock(m_mutex);
        m_begins.erase(choice.serial);
    }
    return serial;
}

std::vector<std::string> CameraSearch::freePorts()
{
    return persist({}, [this]() -> std::optional<std::vector<std::string>> {
        std::vector<std::string> ports;
        for (const zrn::BusCamera& camera : candidates({})) {
            if (isUsable(camera)) {
                ports.push_back(camera.port);
            }
        }
        return ports.empty() ? std::nullopt : std::optional(ports);
    });
}

std::vector<zrn::BusCamera> CameraSearch::candidates(const CameraChoice& choice) const
{
    const std::vector<zrn::BusCamera> cameras = m_bus.camerasAndHolders();
    if (cameras.empty()) {
        throw noCameraOnBus();
    }
    const QString seeList = QStringLiteral("'zrncam list' shows the cameras on the bus");
    if (choice.index >= 0) {
        const auto index = static_cast<std::size_t>(choice.index);
        if (index >= cameras.size()) {
            throw ToolError(ExitCode::NoCamera,
                            QStringLiteral("there is no camera %1; cameras on the bus: %2")
                                .arg(choice.index)
                                .arg(cameras.size()),
                            QStringLiteral("indices begin with 0; ") + seeList);
        }
        return {cameras[index]};
    }
    std::vector<zrn::BusCamera> result;
    if (!choice.port.empty()) {
        std::copy_if(cameras.begin(), cameras.end(), std::back_inserter(result),
                     [&](const zrn::BusCamera& camera) { return camera.port == choice.port; });
        if (result.empty()) {
            throw ToolError(
                ExitCode::NoCamera,
                QStringLiteral("no camera is at port %1").arg(QString::fromStdString(choice.port)),
                seeList);
        }
        return result;
    }
    if (choice.serial.isEmpty()) {
        return cameras;
    }
    const std::string serial = choice.serial.toStdString();
    std::copy_if(cameras.begin(), cameras.end(), std::back_inserter(result),
                 [&](const zrn::BusCamera& camera) { return camera.serial == serial; });
    if (!result.empty()) {
        return result;
    }
    std::copy_if(cameras.begin(), cameras.end(), std::back_inserter(result),
                 [&](const zrn::BusCamera& camera) { return camera.serial.empty(); });
    // A camera that does not answer one of the requests is taken for another one. While some are
    // unknown that is less likely, and asking again would be in the way of others who look.
    if (result.empty() || isLongSought(choice.serial)) {
        std::copy_if(cameras.begin(), cameras.end(), std::back_inserter(result),
                     [&](const zrn::BusCamera& camera) {
                         return !camera.serial.empty() && isUsable(camera) && isDoubtful(camera);
                     });
    }
    if (!result.empty()) {
        return result;
    }
    throw ToolError(ExitCode::NoCamera,
                    QStringLiteral("no camera has the serial %1").arg(choice.serial),
                    QStringLiteral("'zrncam list' shows the serials"));
}

std::optional<QString> CameraSearch::open(const CameraChoice& choice,
                                          const std::vector<zrn::BusCamera>& cameras)
{
    for (const zrn::BusCamera& camera : cameras) {
        if (!isUsable(camera)) {
            continue;
        }
        const QString serial = m_opener.open(camera);
        if (serial.isEmpty()) {
            continue;
        }
        m_bus.remember(camera, serial.toStdString());
        if (!camera.serial.empty()) {
            const std::lock_guard lock(m_mutex);
            m_checks[camera.place()] = std::chrono::steady_clock::now();
        }
        if (choice.serial.isEmpty() || serial == choice.serial) {
            return serial;
        }
        m_opener.close(serial);
    }
    return std::nullopt;
}

bool CameraSearch::isLongSought(const QString& serial) const
{
    const std::lock_guard lock(m_mutex);
    const auto begin = m_begins.find(serial);
    return begin != m_begins.end() &&
           std::chrono::steady_clock::now() - begin->second > othersLooks;
}

bool CameraSearch::isDoubtful(const zrn::BusCamera& camera) const
{
    const std::lock_guard lock(m_mutex);
    const auto check = m_checks.find(camera.place());
    return check == m_checks.end() || std::chrono::steady_clock::now() - check->second > trust;
}

ToolError CameraSearch::failureOf(const CameraChoice& choice) const
{
    try {
        const std::vector<zrn::BusCamera> cameras = candidates(choice);
        if (cameras.size() == 1 && (choice.serial.isEmpty() || !cameras.front().serial.empty())) {
            return refusalOf(cameras.front());
        }
        QStringList reasons;
        QStringList remedies;
        for (const zrn::BusCamera& camera : cameras) {
            const ToolError refusal = refusalOf(camera);
            reasons += QString::fromUtf8(refusal.what());
            remedies += refusal.hint();
        }
        remedies.removeDuplicates();
        const bool isAnyHeld =
            std::any_of(cameras.begin(), cameras.end(),
                        [](const zrn::BusCamera& camera) { return camera.use == zrn::Use::Held; });
        const QString message =
            !choice.serial.isEmpty()
                ? QStringLiteral("no camera that can be opened has the serial %1")
                      .arg(choice.serial)
                : QStringLiteral("none of the %1 cameras on the bus %2")
                      .arg(cameras.size())
                      .arg(isAnyHeld ? QStringLiteral("is free") : QStringLiteral("can be opened"));
        return {ExitCode::NoCamera, message, (reasons + remedies).join(QStringLiteral("; "))};
    } catch (const ToolError& error) {
        return error;
    }
}

ToolError noCameraOnBus()
{
    return {ExitCode::NoCamera, QStringLiteral("no camera found"),
            QStringLiteral("no device %1 is on the bus; check cable and supply")
                .arg(QLatin1String(zrn::cameraIds))};
}

QString nameOf(const zrn::BusCamera& camera)
{
    const QString serial =
        camera.serial.empty() ? QString() : QString::fromStdString(camera.serial) + ' ';
    return QStringLiteral("the camera %1at port %2")
        .arg(serial, QString::fromStdString(camera.port));
}

ToolError refusalOf(const zrn::BusCamera& camera)
{
    const QString node = QString::fromStdString(camera.node());
    if (!camera.nodeExists) {
        return {ExitCode::NoCamera,
                QStringLiteral("%1 has no device node %2").arg(nameOf(camera), node),
                QString::fromStdString(zrn::missingNodeRemedy())};
    }
    if (!camera.accessible) {
        return {ExitCode::NoCamera,
                QStringLiteral("this user may not open %1, %2").arg(nameOf(camera), node),
                QString::fromStdString(zrn::accessRemedy())};
    }
    if (camera.use == zrn::Use::Held) {
        return {ExitCode::NoCamera,
                QStringLiteral("%1 is in use by %2")
                    .arg(nameOf(camera), QString::fromStdString(camera.holderText())),
                QStringLiteral("end that program, or wait until it is done with this camera")};
    }
    return {ExitCode::NoCamera, QStringLiteral("%1 could not be opened").arg(nameOf(camera)),
            QStringLiteral("replug it; 'zrncam doctor' looks for the usual causes")};
}
