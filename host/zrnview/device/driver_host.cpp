#include "zrnview/device/driver_host.h"

#include "common/driver_error.h"
#include "common/property_keys.h"

#include <stdexcept>

namespace zrnview
{
namespace
{

using namespace std::chrono_literals;

constexpr auto busPeriod = 250ms;

ConnectedCameraPointer connectCamera(IFactory& factory, int index)
{
    auto connected = std::make_shared<ConnectedCamera>();
    connected->index = index;
    try {
        auto camera = std::make_unique<zrnhost::Camera>(factory);
        connected->code = (*camera)->connectDeviceByIndex(index);
        if (connected->code == ErrorCode::Success) {
            connected->serial = camera->property(zrnhost::keys::serial).toString();
            connected->camera = std::move(camera);
        }
    } catch (const zrnhost::DriverError& error) {
        connected->code = error.code();
    }
    return connected;
}

} // namespace

BusView viewOf(const std::vector<zrnhost::UsbCamera>& cameras)
{
    BusView bus;
    for (const zrnhost::UsbCamera& camera : cameras) {
        bus.identity += camera.nodePath + QLatin1Char(camera.accessible ? '+' : '-');
        if (camera.accessible) {
            ++bus.usable;
        } else {
            bus.blocked += camera.nodePath;
        }
    }
    return bus;
}

DriverHost::DriverHost(FactoryMaker makeFactory, BusReader readBus)
    : m_makeFactory(std::move(makeFactory))
    , m_readBus(std::move(readBus))
    , m_timer(this)
{
    qRegisterMetaType<BusView>();
    m_timer.setInterval(busPeriod);
    connect(&m_timer, &QTimer::timeout, this, &DriverHost::watchBus);
}

void DriverHost::load()
{
    try {
        m_factory = m_makeFactory();
    } catch (const std::exception& error) {
        emit loadFailed(QString::fromUtf8(error.what()));
        return;
    }
    emit loaded(tr("Driver %1 %2").arg(m_factory->name(), m_factory->version().toString()));
    m_timer.start();
    watchBus();
}

void DriverHost::search()
{
    std::vector<ConnectedCameraPointer> found;
    const int count = m_factory->enumDevice();
    for (int index = 0; index < count; ++index) {
        const ConnectedCameraPointer connected = connectCamera(*m_factory, index);
        // Two cameras with one serial share an entry, so that there are fewer than were counted.
        if (connected->code != ErrorCode::IndexNotFound) {
            found.push_back(connected);
        }
    }
    emit searched(found);
}

void DriverHost::watchBus()
{
    const BusView bus = viewOf(m_readBus());
    if (!m_busKnown || !(bus == m_bus)) {
        m_bus = bus;
        m_busKnown = true;
        emit busChanged(bus);
    }
}

} // namespace zrnview
