#include "zrnview/device/driver_host.h"

#include <stdexcept>

namespace zrnview
{
namespace
{

using namespace std::chrono_literals;

constexpr auto busPeriod = 250ms;
/// A holder may give way to another one without a change on the bus.
constexpr qint64 holdersMilliseconds = 2000;

} // namespace

DriverHost::DriverHost(DriverMaker makeDriver)
    : m_makeDriver(std::move(makeDriver))
    , m_timer(this)
{
    qRegisterMetaType<zrn::BusCamera>();
    qRegisterMetaType<std::vector<zrn::BusCamera>>();
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
        m_watch = std::make_unique<zrn::BusWatch>(m_driver->bus());
    } catch (const std::exception& error) {
        emit loadFailed(QString::fromUtf8(error.what()));
        return;
    }
    emit loaded(m_driver);
    m_timer.start();
    look();
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
    m_told.reset();
    look();
}

void DriverHost::look()
{
    std::vector<zrn::BusCamera> cameras = m_driver->bus().camerasAndHolders();
    m_holdersSeen.start();
    if (cameras != m_told) {
        m_told = std::move(cameras);
        emit busChanged(*m_told);
    }
}

void DriverHost::watchBus()
{
    bool mayHaveChanged = m_holdersSeen.hasExpired(holdersMilliseconds);
    while (m_watch->next(0ms)) {
        mayHaveChanged = true;
    }
    if (mayHaveChanged) {
        look();
    }
}

} // namespace zrnview
