#include "zrnview/device/bench.h"

#include <algorithm>

namespace zrnview
{
namespace
{

using namespace std::chrono_literals;

constexpr auto retryPeriod = 1s;
/// After this time what the bus is seen to hold is newer than a camera's failure to answer.
constexpr auto busSettles = 800ms;
constexpr int shutDownMilliseconds = 5000;

} // namespace

Bench::Bench(FactoryMaker makeFactory, BusReader readBus, QObject* parent)
    : QObject(parent)
    , m_host(new DriverHost(std::move(makeFactory), std::move(readBus)))
    , m_retryTimer(this)
{
    registerReportTypes();
    m_host->moveToThread(&m_thread);
    connect(&m_thread, &QThread::finished, m_host, &QObject::deleteLater);
    connect(m_host, &DriverHost::loaded, this, [this](const QString& description) {
        m_description = description;
        beginSearch();
    });
    connect(m_host, &DriverHost::loadFailed, this, [this](const QString& why) {
        m_description = why;
        setState(State::Failed);
    });
    connect(m_host, &DriverHost::searched, this, &Bench::takeOver);
    connect(m_host, &DriverHost::busChanged, this, [this](const BusView& bus) {
        m_bus = bus;
        m_triedSinceChange = false;
        emit busChanged();
        considerSearch();
    });
    m_retryTimer.setInterval(retryPeriod);
    connect(&m_retryTimer, &QTimer::timeout, this, &Bench::searchAgain);
}

Bench::~Bench()
{
    shutDown();
}

void Bench::start()
{
    m_thread.setObjectName(QStringLiteral("driver"));
    m_thread.start();
    m_retryTimer.start();
    QMetaObject::invokeMethod(m_host, &DriverHost::load);
}

void Bench::search()
{
    if (m_state == State::Ready) {
        beginSearch();
    }
}

bool Bench::hasNewCamera() const
{
    // What the bus looked like may be older than the loss of a camera.
    const bool justLost =
        std::any_of(m_devices.begin(), m_devices.end(),
                    [](const CameraDevice* device) { return device->wasLostWithin(busSettles); });
    return m_state == State::Ready && !justLost && m_bus.usable > liveCount();
}

bool Bench::isRecording() const
{
    return std::any_of(m_devices.begin(), m_devices.end(),
                       [](const CameraDevice* device) { return device->isRecording(); });
}

bool Bench::shutDown()
{
    m_retryTimer.stop();
    bool ended = true;
    for (CameraDevice* device : m_devices) {
        ended = device->shutDown(shutDownMilliseconds) && ended;
    }
    m_thread.quit();
    return m_thread.wait(shutDownMilliseconds) && ended;
}

void Bench::beginSearch()
{
    m_triedSinceChange = true;
    setState(State::Searching);
    m_toRelease = static_cast<int>(m_devices.size());
    for (CameraDevice* device : m_devices) {
        device->release();
    }
    enumerateWhenReleased();
}

void Bench::enumerateWhenReleased()
{
    if (m_state == State::Searching && m_toRelease == 0) {
        m_toRelease = -1; // once for each search
        QMetaObject::invokeMethod(m_host, &DriverHost::search);
    }
}

void Bench::takeOver(const std::vector<ConnectedCameraPointer>& found)
{
    for (const ConnectedCameraPointer& connected : found) {
        deviceFor(*connected).adopt(connected);
    }
    for (CameraDevice* device : m_devices) {
        if (device->health().state == CameraState::Absent) {
            device->noteMissing();
        }
    }
    setState(State::Ready);
}

void Bench::considerSearch()
{
    if (!hasNewCamera() || isRecording()) {
        return;
    }
    const bool anyLost = std::any_of(m_devices.begin(), m_devices.end(), [](const auto* device) {
        return device->health().state == CameraState::Lost;
    });
    if ((anyLost || liveCount() == 0) && !m_triedSinceChange) {
        beginSearch();
    }
}

void Bench::searchAgain()
{
    // Where nothing is disturbed, trying again costs nothing: the camera may still be starting.
    if (hasNewCamera() && liveCount() == 0) {
        beginSearch();
    } else {
        considerSearch();
    }
}

CameraDevice& Bench::deviceFor(const ConnectedCamera& connected)
{
    const QString serial =
        connected.serial.isEmpty() ? tr("camera %1").arg(connected.index) : connected.serial;
    const auto found =
        std::find_if(m_devices.begin(), m_devices.end(),
                     [&serial](const CameraDevice* device) { return device->serial() == serial; });
    if (found != m_devices.end()) {
        return **found;
    }
    auto* device = new CameraDevice(serial, this);
    m_devices.push_back(device);
    connect(device, &CameraDevice::released, this, [this] {
        --m_toRelease;
        enumerateWhenReleased();
    });
    connect(device, &CameraDevice::healthChanged, this, &Bench::considerSearch);
    emit deviceAdded(device);
    return *device;
}

int Bench::liveCount() const
{
    return static_cast<int>(
        std::count_if(m_devices.begin(), m_devices.end(), [](const CameraDevice* device) {
            return device->isConnected() || device->health().state == CameraState::Connecting ||
                   device->health().state == CameraState::Unusable;
        }));
}

void Bench::setState(State state)
{
    m_state = state;
    emit stateChanged();
}

} // namespace zrnview
