#include "zrnview/device/bench.h"

#include <algorithm>

namespace zrnview
{
namespace
{

using namespace std::chrono_literals;

constexpr auto retryPeriod = 1s;
constexpr int shutDownMilliseconds = 5000;

} // namespace

Bench::Bench(FactoryMaker makeFactory, zrnhost::BusReaders readers, QObject* parent)
    : QObject(parent)
    , m_host(new DriverHost(std::move(makeFactory), std::move(readers)))
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
    });
    connect(m_host, &DriverHost::busChanged, this, [this](const BusView& bus) {
        m_bus = bus;
        consider();
        emit busChanged();
    });
    m_retryTimer.setInterval(retryPeriod);
    connect(&m_retryTimer, &QTimer::timeout, this, [this] {
        m_refused.clear(); // the camera may have been starting
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
    m_retryTimer.start();
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
    m_askedFor.insert(port);
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
    QMetaObject::invokeMethod(m_host,
                              [host = m_host, camera = entry.camera] { host->open(camera); });
}

bool Bench::isWanted(const BusView::Entry& entry) const
{
    if (!entry.isFree() || deviceAt(entry.place()) || m_refused.count(entry.place()) > 0) {
        return false;
    }
    if (m_askedFor.count(entry.port()) > 0) {
        return true;
    }
    if (const CameraDevice* known = deviceWith(entry.serial())) {
        return known->isSought();
    }
    const bool isAnySought = std::any_of(m_devices.begin(), m_devices.end(),
                                         [](const auto* device) { return device->isSought(); });
    return m_initialCameras > 0 || (entry.serial().isEmpty() && isAnySought);
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
