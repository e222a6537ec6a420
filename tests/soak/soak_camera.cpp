#include "soak_camera.h"

#include "checks/images.h"
#include "client/property_keys.h"
#include "stream_tap.h"

#include <algorithm>
#include <cstring>

namespace soak
{
namespace
{

namespace keys = zrn::keys;
using std::chrono::milliseconds;

constexpr int grabTimeoutMs = 200;
constexpr std::size_t bytesPerPosition = 2;

std::optional<std::uint32_t> numberOf(std::span<const std::uint8_t> frame, std::size_t size)
{
    constexpr std::size_t numberOffset = 2;
    if (frame.size() != size) {
        return std::nullopt;
    }
    std::uint32_t number = 0;
    std::memcpy(&number, frame.data() + numberOffset, sizeof(number));
    return number;
}

} // namespace

SoakCamera::SoakCamera(IFactory& factory, OperationLog& log, std::size_t index,
                       const std::string& serial)
    : m_log(log)
    , m_index(index)
    , m_camera(std::make_unique<zrn::CameraObject>(factory))
{
    m_log.time("connectDeviceBySerial",
               [&] { return (*m_camera)->connectDeviceBySerial(QString::fromStdString(serial)); });
    m_camera->writeProperty(keys::maxGrabWaitTime, grabTimeoutMs);
}

void SoakCamera::close()
{
    const void* const object = dynamic_cast<const void*>(&**m_camera);
    m_log.time("deleteDevice", [&] { m_camera.reset(); });
    unwatchStream(object);
}

void SoakCamera::start(Random& random)
{
    const int slots = pick(random, 2, 16);
    m_log.time("set CacheFrameCount",
               [&] { return m_camera->writeProperty(keys::cacheFrameCount, slots); });
    QVariant used = slots;
    m_camera->readProperty(keys::cacheFrameCount, used);
    unsigned width = 0;
    unsigned height = 0;
    (*m_camera)->getMaxImageSize(width, height, 0);

    const auto ledger = std::make_shared<StreamLedger>(used.toInt());
    const std::size_t size = bytesPerPosition * width * height;
    {
        const std::lock_guard locker(m_mutex);
        m_sessions.push_back({now(), ledger});
    }
    // The driver hands libuvc the address of its camera object.
    watchStream(dynamic_cast<const void*>(&**m_camera),
                [ledger, size](auto frame) { ledger->noteArrival(numberOf(frame, size)); });
    const ErrorCode result = m_log.time("startStream", [&] { return (*m_camera)->startStream(0); });
    m_emptyGrabs = 0;
    if (result == ErrorCode::Success) {
        ledger->noteStarted();
    } else {
        ledger->noteStopping();
    }
}

void SoakCamera::stop()
{
    noteStopping();
    m_log.time("stopStream", [&] { return (*m_camera)->stopStream(0); });
    const std::unique_lock noGrab(m_grabGate);
    discard();
}

void SoakCamera::discard()
{
    m_log.time("discardFrames", [&] { return (*m_camera)->discardFrames(0); });
    if (const auto current = ledger()) {
        current->noteDiscard();
    }
}

bool SoakCamera::isSilent() const
{
    constexpr int patience = 4;
    return m_emptyGrabs >= patience;
}

bool SoakCamera::grabOnce(bool dropsOlder)
{
    const std::shared_lock inSession(m_grabGate);
    const auto current = ledger();
    if (!current) {
        return false;
    }
    ContractSpace::Images images;
    const ErrorCode result =
        m_log.time("grabImage", [&] { return ContractSpace::grab(**m_camera, images); });
    if (result != ErrorCode::Success || images.empty()) {
        ++m_emptyGrabs;
        return false;
    }
    m_emptyGrabs = 0;
    current->noteDelivery(ContractSpace::trailerOf(*images.front()), dropsOlder);
    return true;
}

void SoakCamera::grabThread(Pauses& pauses, unsigned seed)
{
    using CameraSpace::TriggerMode;
    Random random(seed);
    bool dropsOlder = false;
    (*m_camera)->setTriggerMode(TriggerMode::Oldest, 0);
    milliseconds pause(0);
    while (pauses.pause(pause)) {
        pause = grabOnce(dropsOlder) ? milliseconds(0) : milliseconds(20);
        if (pick(random, 0, 99) == 0) {
            dropsOlder = !dropsOlder;
            (*m_camera)->setTriggerMode(dropsOlder ? TriggerMode::Newest : TriggerMode::Oldest, 0);
        }
        if (pick(random, 0, 59) == 0) {
            pause = milliseconds(pick(random, 50, 700)); // the host is busy elsewhere
        }
    }
}

void SoakCamera::controlThread(Pauses& pauses, unsigned seed)
{
    Random random(seed);
    CameraSpace::CameraInterface& camera = **m_camera;
    constexpr const char* readable[] = {keys::heartBeat, keys::serial,          keys::gamma,
                                        keys::hue,       keys::sharp,           keys::bGain,
                                        keys::frameRate, keys::cacheFrameCount, keys::sensorCount};
    constexpr const char* writable[] = {keys::gamma, keys::hue,    keys::sharp, keys::rGain,
                                        keys::bGain, keys::grGain, keys::gbGain};
    unsigned wide = 0;
    unsigned short narrow = 0;
    while (pauses.pause(milliseconds(pick(random, 1, 60)))) {
        switch (pick(random, 0, 9)) {
        case 0:
            m_log.time("setExposureTime", [&] {
                return camera.setExposureTime(static_cast<unsigned>(pick(random, 1, 20'000)), 0);
            });
            break;
        case 1:
            m_log.time("getExposureTime", [&] { return camera.getExposureTime(wide, 0); });
            break;
        case 2:
            m_log.time("setGain", [&] {
                return camera.setGain(static_cast<unsigned short>(pick(random, 0, 255)), 0);
            });
            break;
        case 3:
            m_log.time("getGain", [&] { return camera.getGain(narrow, 0); });
            break;
        case 4:
            m_log.time("getExposureTimeRange",
                       [&] { return camera.getExposureTimeRange(wide, wide, 0); });
            break;
        case 5:
            m_log.time("executeCommand", [&] { return m_camera->run(keys::clearState); });
            break;
        case 6:
            m_log.time("reconnectDevice", [&] { return camera.reconnectDevice(); });
            break;
        case 7:
            m_log.time("setProperty", [&] {
                return m_camera->writeProperty(pickFrom(random, writable), pick(random, 0, 255));
            });
            break;
        default:
            QVariant value;
            m_log.time("getProperty",
                       [&] { return m_camera->readProperty(pickFrom(random, readable), value); });
        }
    }
}

void SoakCamera::noteBrokenWire()
{
    if (const auto current = ledger()) {
        current->noteBrokenWire();
    }
}

void SoakCamera::noteStopping()
{
    if (const auto current = ledger()) {
        current->noteStopping();
    }
}

std::shared_ptr<StreamLedger> SoakCamera::ledger() const
{
    const std::lock_guard locker(m_mutex);
    return m_sessions.empty() ? nullptr : m_sessions.back().ledger;
}

Outcomes SoakCamera::settle(const std::vector<SentFrame>& sent) const
{
    const std::lock_guard locker(m_mutex);
    Outcomes all;
    for (std::size_t i = 0; i < m_sessions.size(); ++i) {
        std::vector<SentFrame> own;
        std::ranges::copy_if(sent, std::back_inserter(own), [&](const SentFrame& frame) {
            return frame.begun >= m_sessions[i].begun &&
                   (i + 1 == m_sessions.size() || frame.begun < m_sessions[i + 1].begun);
        });
        for (const auto& [outcome, count] : m_sessions[i].ledger->settle(own)) {
            all[outcome] += count;
        }
    }
    return all;
}

} // namespace soak
