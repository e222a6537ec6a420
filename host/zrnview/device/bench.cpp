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
    connect(m_host, &DriverHost::busChanged, this,
            [this](const std::vector<zrn::BusCamera>& cameras) {
                m_bus = cameras;
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
    m_askedFor[port.toStdString()] = Clock::now() + m_times.patience;
    m_refused.clear();
    consider();
}

std::vector<zrn::BusCamera> Bench::others() const
{
    std::vector<zrn::BusCamera> others;
    std::ranges::copy_if(
        m_bus, std::back_inserter(others),
        [this](const std::string& serial) { return !deviceWith(serial); }, &zrn::BusCamera::serial);
    return others;
}

bool Bench::isRecording() const
{
    return std::any_of(m_devices.begin(), m_devices.end(),
                       [](const CameraDevice* device) { return device->isRecording(); });
}

void Bench::record(const zrn::RecordingPlan& plan, CameraDevice* only)
{
    const auto session = std::make_shared<zrn::RecordingSession>(plan);
    for (CameraDevice* device : m_devices) {
        const bool isWanted = only ? device == only : device->isStreaming();
        if (isWanted && !device->isRecording()) {
            device->startRecording(session);
        }
    }
}

void Bench::stopRecording(const CameraDevice& device)
{
    for (CameraDevice* other : m_devices) {
        if (device.recorder() && other->recorder() &&
            other->recorder()->session() == device.recorder()->session()) {
            other->stopRecording();
        }
    }
}

void Bench::trigger()
{
    std::set<std::shared_ptr<zrn::RecordingSession>> sessions;
    for (const CameraDevice* device : m_devices) {
        if (device->isRecording()) {
            sessions.insert(device->recorder()->session());
        }
    }
    for (const std::shared_ptr<zrn::RecordingSession>& session : sessions) {
        session->trigger();
    }
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
    for (const zrn::BusCamera& camera : m_bus) {
        // One after the other: whom one turns out to be may settle whether the next is wanted.
        if (!m_isOpening && isWanted(camera)) {
            open(camera);
        }
    }
}

bool Bench::isWanted(const zrn::BusCamera& camera) const
{
    return camera.isFree() && m_refused.count(camera.place()) == 0 &&
           (m_askedFor.count(camera.port) > 0 ||
            (m_initialCameras > 0 && !deviceWith(camera.serial)));
}

void Bench::open(const zrn::BusCamera& camera)
{
    m_isOpening = true;
    std::set<std::string> known;
    for (const CameraDevice* device : m_devices) {
        known.insert(device->serial().toStdString());
    }
    QMetaObject::invokeMethod(m_host,
                              [host = m_host, camera, known] { host->open(camera, known); });
}

void Bench::noteOpened(const zrn::BusCamera& camera)
{
    m_isOpening = false;
    CameraDevice* known = deviceWith(camera.serial);
    if (camera.serial.empty() || known) {
        m_refused.insert(camera.place());
    }
    const bool isAskedFor = !camera.serial.empty() && m_askedFor.erase(camera.port) > 0;
    if (known && isAskedFor) {
        known->take();
    } else if (!known && !camera.serial.empty()) {
        m_initialCameras -= isAskedFor ? 0 : 1;
        const auto onBus = std::ranges::find(m_bus, camera.place(), &zrn::BusCamera::place);
        if (onBus != m_bus.end()) {
            onBus->serial = camera.serial; // before the next look
        }
        auto* device = new CameraDevice(m_driver, camera, this);
        m_devices.push_back(device);
        emit deviceAdded(device, isAskedFor);
    }
    consider();
    emit busChanged();
}

void Bench::forgetOldRequests()
{
    const auto now = Clock::now();
    std::erase_if(m_askedFor, [now](const auto& request) { return now > request.second; });
}

CameraDevice* Bench::deviceWith(const std::string& serial) const
{
    const auto found =
        std::ranges::find(m_devices, QString::fromStdString(serial), &CameraDevice::serial);
    return found == m_devices.end() ? nullptr : *found;
}

void Bench::setState(State state)
{
    m_state = state;
    emit stateChanged();
}

} // namespace zrnview
