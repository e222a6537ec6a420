#include "zrnview/device/driver_host.h"

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

DriverHost::DriverHost(DriverMaker makeDriver)
    : m_makeDriver(std::move(makeDriver))
    , m_timer(this)
{
    qRegisterMetaType<BusView>();
    qRegisterMetaType<zrn::BusCamera>();
    qRegisterMetaType<std::shared_ptr<zrn::Driver>>();
    m_timer.setInterval(busPeriod);
    connect(&m_timer, &QTimer::timeout, this, &DriverHost::watchBus);
}

void DriverHost::load()
{
    try {
        m_driver = m_makeDriver();
        if (!m_driver->canChoose()) {
            throw std::runtime_error("The driver can only open all cameras at once. The viewer "
                                     "needs one that opens them one by one.");
        }
    } catch (const std::exception& error) {
        emit loadFailed(QString::fromUtf8(error.what()));
        return;
    }
    emit loaded(m_driver);
    m_timer.start();
    watchBus();
}

void DriverHost::open(zrn::BusCamera camera, const std::set<std::string>& known)
{
    camera.serial = m_driver->open(camera);
    if (known.count(camera.serial) > 0) {
        m_driver->close(camera.serial);
    }
    emit opened(camera);
}

void DriverHost::lookAgain()
{
    m_glance.reset();
    m_bus.reset();
    watchBus();
}

void DriverHost::watchBus()
{
    if (!m_driver) {
        return;
    }
    BusView glance = viewOf(m_driver->bus().cameras());
    const bool isHolderOld = isAnyHeld(glance) && m_holdersSeen.isValid() &&
                             m_holdersSeen.hasExpired(holdersMilliseconds);
    if (m_glance && glance == *m_glance && !isHolderOld) {
        return;
    }
    BusView bus = isAnyHeld(glance) ? viewOf(m_driver->bus().camerasAndHolders()) : glance;
    m_holdersSeen.start();
    m_glance = std::move(glance);
    if (!m_bus || !(bus == *m_bus)) {
        m_bus = std::move(bus);
        emit busChanged(*m_bus);
    }
}

} // namespace zrnview
