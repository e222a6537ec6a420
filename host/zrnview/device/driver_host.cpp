#include "zrnview/device/driver_host.h"

#include "common/driver_error.h"
#include "common/property_keys.h"

#include <algorithm>
#include <stdexcept>

namespace zrnview
{
namespace
{

using namespace std::chrono_literals;

constexpr auto busPeriod = 250ms;
/// A holder may give way to another one without a change in sysfs.
constexpr qint64 holdersMilliseconds = 2000;

ConnectedCameraPointer connectCamera(const std::shared_ptr<IFactory>& factory,
                                     const QString& serial)
{
    auto connected = std::make_shared<ConnectedCamera>();
    connected->serial = serial;
    connected->factory = factory;
    try {
        auto camera = std::make_unique<zrnhost::Camera>(*factory);
        connected->code = (*camera)->connectDeviceBySerial(serial);
        if (connected->code == ErrorCode::Success) {
            connected->camera = std::move(camera);
        }
    } catch (const zrnhost::DriverError& error) {
        connected->code = error.code();
    }
    return connected;
}

BusView viewOf(const std::vector<zrn::BusCamera>& cameras)
{
    BusView bus;
    for (const zrn::BusCamera& camera : cameras) {
        bus.entries.push_back({camera});
    }
    return bus;
}

/// Whether there is a camera of which only its holders tell who uses it, or whether it is used.
bool isAnyHeld(const BusView& bus)
{
    return std::any_of(bus.entries.begin(), bus.entries.end(), [](const BusView::Entry& entry) {
        return entry.camera.use == zrn::Use::Held || !entry.camera.videoNodes.empty();
    });
}

} // namespace

bool BusView::Entry::operator==(const Entry& other) const
{
    const zrn::BusCamera& a = camera;
    const zrn::BusCamera& b = other.camera;
    return a.port == b.port && a.place() == b.place() && a.accessible == b.accessible &&
           a.use == b.use && a.holders == b.holders && a.serial == b.serial;
}

QStringList BusView::blocked() const
{
    QStringList nodes;
    for (const Entry& entry : entries) {
        if (!entry.camera.accessible) {
            nodes += QString::fromStdString(entry.camera.node());
        }
    }
    return nodes;
}

DriverHost::DriverHost(FactoryMaker makeFactory, zrnhost::BusReaders readers)
    : m_makeFactory(std::move(makeFactory))
    , m_readers(std::move(readers))
    , m_timer(this)
{
    qRegisterMetaType<BusView>();
    qRegisterMetaType<zrn::BusCamera>();
    m_timer.setInterval(busPeriod);
    connect(&m_timer, &QTimer::timeout, this, &DriverHost::watchBus);
}

void DriverHost::load()
{
    try {
        m_factory = m_makeFactory();
        m_opener = std::make_unique<zrnhost::DeviceOpener>(*m_factory, m_readers.camerasAndHolders);
        if (!m_opener->canChoose()) {
            throw std::runtime_error("The driver can only open all cameras at once. The viewer "
                                     "needs one that opens them one by one.");
        }
    } catch (const std::exception& error) {
        emit loadFailed(QString::fromUtf8(error.what()));
        return;
    }
    emit loaded(tr("Driver %1 %2").arg(m_factory->name(), m_factory->version().toString()));
    m_timer.start();
    watchBus();
}

void DriverHost::open(const zrn::BusCamera& camera, const SerialFilter& isWanted)
{
    const QString place = QString::fromStdString(camera.place());
    const QString serial = m_opener->open(camera);
    if (serial.isEmpty()) {
        emit notOpened(place);
        return;
    }
    m_readers.remember(camera, serial.toStdString());
    if (!isWanted(serial)) {
        m_opener->close(serial);
        emit notOpened(place);
        return;
    }
    const ConnectedCameraPointer connected = connectCamera(m_factory, serial);
    connected->port = QString::fromStdString(camera.port);
    if (!connected->camera) {
        m_opener->close(serial); // for other programs
    }
    emit opened(place, connected);
}

void DriverHost::giveBack(const ConnectedCameraPointer& connected)
{
    connected->camera.reset();
}

void DriverHost::lookAgain()
{
    m_glance.reset();
    m_bus.reset();
    watchBus();
}

void DriverHost::watchBus()
{
    BusView glance = viewOf(m_readers.cameras());
    const bool isHolderOld = isAnyHeld(glance) && m_holdersSeen.isValid() &&
                             m_holdersSeen.hasExpired(holdersMilliseconds);
    if (m_glance && glance == *m_glance && !isHolderOld) {
        return;
    }
    BusView bus = isAnyHeld(glance) ? viewOf(m_readers.camerasAndHolders()) : glance;
    m_holdersSeen.start();
    m_glance = std::move(glance);
    if (!m_bus || !(bus == *m_bus)) {
        m_bus = std::move(bus);
        emit busChanged(*m_bus);
    }
}

} // namespace zrnview
