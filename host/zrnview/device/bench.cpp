#include "zrnview/device/bench.h"

#include <algorithm>

namespace zrnview
{
namespace
{

using namespace std::chrono_literals;

/// How long what a camera gave for its serial is taken for granted, once it was asked again.
constexpr auto trust = 60s;
constexpr int shutDownMilliseconds = 5000;

} // namespace

Bench::Bench(DriverMaker makeDriver, QObject* parent)
    : QObject(parent)
    , m_host(new DriverHost(std::move(makeDriver)))
    , m_retryTimer(this)
{
    registerReportTypes();
    m_host->moveToThread(&m_thread);
    connect(&m_thread, &QThread::finished, m_host, &QObject::deleteLater);
    connect(m_host, &DriverHost::loaded, this, [this](const QString& description) {
        m_description = description;
        setState(State::Ready);
    });
    connect(m_host, &DriverHost::loadFailed, this, [this](const QString& why) {
        m_description = why;
        setState(State::Failed);
    });
    connect(m_host, &DriverHost::opened, this, &Bench::takeOver);
    connect(m_host, &DriverHost::notOpened, this, [this](const QString& place) {
        m_opening.erase(place);
        m_refused.insert(place);
        consider();
    });
    connect(m_host, &DriverHost::busChanged, this, [this](const BusView& bus) {
        m_bus = bus;
        consider();
        emit busChanged();
    });
    connect(&m_retryTimer, &QTimer::timeout, this, [this] {
        m_refused.clear(); // the camera may have been starting
        forgetOldRequests();
        consider();
    });
}

Bench::~Bench()
{
    shutDown();
}

void Bench::start()
{
    m_thread.setObjectName(QStringLiteral("driver"));
    m_thread.start();
    m_retryTimer.start(m_times.retry);
    QMetaObject::invokeMethod(m_host, &DriverHost::load);
}

void Bench::lookAgain()
{
    if (m_state == State::Ready) {
        m_refused.clear();
        QMetaObject::invokeMethod(m_host, &DriverHost::lookAgain);
    }
}

void Bench::take(const QString& port)
{
    m_askedFor[port] = Clock::now() + m_times.patience;
    m_refused.clear();
    consider();
}

void Bench::take(CameraDevice& device)
{
    device.setWanted(true);
    m_refused.clear();
    consider();
}

void Bench::giveBack(CameraDevice& device)
{
    device.setWanted(false);
    device.release();
}

std::vector<BusView::Entry> Bench::others() const
{
    std::vector<BusView::Entry> others;
    std::copy_if(m_bus.entries.begin(), m_bus.entries.end(), std::back_inserter(others),
                 [this](const BusView::Entry& entry) {
                     return !deviceAt(entry.place()) && !deviceWith(entry.serial());
                 });
    return others;
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

void Bench::consider()
{
    if (m_state != State::Ready) {
        return;
    }
    for (const BusView::Entry& entry : m_bus.entries) {
        // One after the other: whom one turns out to be may settle whether the next is wanted.
        if (m_opening.empty() && isWanted(entry)) {
            open(entry);
        }
    }
}

void Bench::open(const BusView::Entry& entry)
{
    m_opening.insert(entry.place());
    if (!entry.serial().isEmpty()) {
        m_checks[entry.place()] = Clock::now();
    }
    std::set<QString> known;
    std::set<QString> sought;
    for (const CameraDevice* device : m_devices) {
        known.insert(device->serial());
        if (device->isSought()) {
            sought.insert(device->serial());
        }
    }
    const auto isWantedSerial = [known, sought, takesAny = isAskedFor(entry.port()),
                                 takesNew = m_initialCameras > 0](const QString& serial) {
        return takesAny || sought.count(serial) > 0 || (takesNew && known.count(serial) == 0);
    };
    QMetaObject::invokeMethod(m_host, [host = m_host, camera = entry.camera, isWantedSerial] {
        host->open(camera, isWantedSerial);
    });
}

bool Bench::isAskedFor(const QString& port) const
{
    return m_askedFor.count(port) > 0;
}

void Bench::forgetOldRequests()
{
    const auto now = Clock::now();
    std::erase_if(m_askedFor, [now](const auto& request) { return now > request.second; });
}

bool Bench::isWanted(const BusView::Entry& entry) const
{
    if (!entry.isFree() || deviceAt(entry.place()) || m_refused.count(entry.place()) > 0) {
        return false;
    }
    if (isAskedFor(entry.port())) {
        return true;
    }
    if (const CameraDevice* known = deviceWith(entry.serial())) {
        return known->isSought();
    }
    return m_initialCameras > 0 || (isAnyMissing() && isDoubtful(entry));
}

/// Whether a camera is sought that nothing on the bus is known to be.
bool Bench::isAnyMissing() const
{
    const auto isOnBus = [this](const CameraDevice* device) {
        return std::any_of(
            m_bus.entries.begin(), m_bus.entries.end(),
            [device](const BusView::Entry& entry) { return entry.serial() == device->serial(); });
    };
    return std::any_of(m_devices.begin(), m_devices.end(), [&](const CameraDevice* device) {
        return device->isSought() && !isOnBus(device);
    });
}

/// Whether a camera may be another one than it seems: one that misses a request gives a wrong
/// serial.
bool Bench::isDoubtful(const BusView::Entry& entry) const
{
    const auto check = m_checks.find(entry.place());
    return entry.serial().isEmpty() || check == m_checks.end() ||
           Clock::now() - check->second > trust;
}

void Bench::takeOver(const QString& place, const ConnectedCameraPointer& connected)
{
    m_opening.erase(place);
    CameraDevice* device = deviceWith(connected->serial);
    const bool isAskedFor = m_askedFor.erase(connected->port) > 0;
    if (!device && (isAskedFor || m_initialCameras > 0)) {
        m_initialCameras -= isAskedFor ? 0 : 1;
        device = &addDevice(connected->serial, isAskedFor);
    }
    if (!device || (!device->isSought() && !isAskedFor)) {
        // Its serial is known from now on.
        QMetaObject::invokeMethod(m_host,
                                  [host = m_host, connected] { host->giveBack(connected); });
        m_refused.insert(place);
    } else {
        device->setWanted(true);
        device->adopt(connected, place);
    }
    consider();
    emit busChanged();
}

void Bench::noteHealth(CameraDevice& device)
{
    // One that is lost is closed, to be opened where it appears again.
    if (device.health().state == CameraState::Lost && !device.place().isEmpty()) {
        device.release();
    }
}

CameraDevice* Bench::deviceAt(const QString& place) const
{
    const auto found =
        std::find_if(m_devices.begin(), m_devices.end(),
                     [&place](const CameraDevice* device) { return device->place() == place; });
    return found == m_devices.end() ? nullptr : *found;
}

CameraDevice* Bench::deviceWith(const QString& serial) const
{
    const auto found =
        std::find_if(m_devices.begin(), m_devices.end(),
                     [&serial](const CameraDevice* device) { return device->serial() == serial; });
    return found == m_devices.end() ? nullptr : *found;
}

CameraDevice& Bench::addDevice(const QString& serial, bool isAskedFor)
{
    auto* device = new CameraDevice(serial, this);
    m_devices.push_back(device);
    connect(device, &CameraDevice::released, this, &Bench::consider);
    connect(device, &CameraDevice::healthChanged, this, [this, device] { noteHealth(*device); });
    device->setWanted(true);
    emit deviceAdded(device, isAskedFor);
    return *device;
}

void Bench::setState(State state)
{
    m_state = state;
    emit stateChanged();
}

} // namespace zrnview
