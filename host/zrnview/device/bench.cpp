#include "zrnview/device/bench.h"

#include <algorithm>

namespace zrnview
{
namespace
{

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
    connect(m_host, &DriverHost::loaded, this, [this](const std::shared_ptr<zrn::Driver>& driver) {
        m_driver = driver;
        m_description = tr("Driver %1 %2")
                            .arg(QString::fromStdString(driver->name()),
                                 QString::fromStdString(driver->version()));
        setState(State::Ready);
    });
    connect(m_host, &DriverHost::loadFailed, this, [this](const QString& why) {
        m_description = why;
        setState(State::Failed);
    });
    connect(m_host, &DriverHost::opened, this, &Bench::noteOpened);
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

std::vector<BusView::Entry> Bench::others() const
{
    std::vector<BusView::Entry> others;
    std::copy_if(m_bus.entries.begin(), m_bus.entries.end(), std::back_inserter(others),
                 [this](const BusView::Entry& entry) { return !deviceWith(entry.serial()); });
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
        if (!m_isOpening && isWanted(entry)) {
            open(entry);
        }
    }
}

void Bench::open(const BusView::Entry& entry)
{
    m_isOpening = true;
    std::set<std::string> known;
    for (const CameraDevice* device : m_devices) {
        known.insert(device->serial().toStdString());
    }
    QMetaObject::invokeMethod(
        m_host, [host = m_host, camera = entry.camera, known] { host->open(camera, known); });
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
    return entry.isFree() && m_refused.count(entry.place()) == 0 &&
           (isAskedFor(entry.port()) || (m_initialCameras > 0 && !deviceWith(entry.serial())));
}

void Bench::noteOpened(const zrn::BusCamera& camera)
{
    m_isOpening = false;
    CameraDevice* known = deviceWith(QString::fromStdString(camera.serial));
    if (camera.serial.empty() || known) {
        m_refused.insert(QString::fromStdString(camera.place()));
    }
    const bool isAskedFor =
        !camera.serial.empty() && m_askedFor.erase(QString::fromStdString(camera.port)) > 0;
    if (known && isAskedFor) {
        known->take();
    } else if (!known && !camera.serial.empty()) {
        m_initialCameras -= isAskedFor ? 0 : 1;
        for (BusView::Entry& entry : m_bus.entries) {
            if (entry.camera.place() == camera.place()) {
                entry.camera.serial = camera.serial;
            }
        }
        auto* device = new CameraDevice(m_driver, camera, this);
        m_devices.push_back(device);
        emit deviceAdded(device, isAskedFor);
    }
    consider();
    emit busChanged();
}

CameraDevice* Bench::deviceWith(const QString& serial) const
{
    const auto found =
        std::find_if(m_devices.begin(), m_devices.end(),
                     [&serial](const CameraDevice* device) { return device->serial() == serial; });
    return found == m_devices.end() ? nullptr : *found;
}

void Bench::setState(State state)
{
    m_state = state;
    emit stateChanged();
}

} // namespace zrnview
