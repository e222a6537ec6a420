#include "common/device_opener.h"

#include <QStringList>
#include <QThread>
#include <QVariant>

#include <algorithm>
#include <memory>

namespace zrnhost
{

namespace
{

/// Has the factory live in the calling thread, to which its properties belong meanwhile.
class Visit
{
public:
    explicit Visit(IFactory& factory)
        : m_factory(factory)
    {
        m_factory.moveToThread(QThread::currentThread());
    }
    ~Visit() { m_factory.moveToThread(nullptr); }
    Visit(const Visit&) = delete;
    Visit& operator=(const Visit&) = delete;

private:
    IFactory& m_factory;
};

} // namespace

BusReaders busReaders()
{
    const auto bus = std::make_shared<zrn::Bus>();
    return {[bus] { return bus->cameras(); }, [bus] { return bus->camerasAndHolders(); },
            [bus](const zrn::BusCamera& camera, const std::string& serial) {
                bus->remember(camera, serial);
            }};
}

DeviceOpener::DeviceOpener(IFactory& factory, BusReader readBus)
    : m_factory(factory)
    , m_readBus(std::move(readBus))
    , m_canChoose(factory.property(IFactory::deviceSerialsProperty).isValid())
{
    if (m_canChoose) {
        m_factory.moveToThread(nullptr); // from where any thread can take it
    }
}

DeviceOpener::~DeviceOpener()
{
    if (m_canChoose) {
        m_factory.moveToThread(QThread::currentThread());
    }
}

QString DeviceOpener::open(const zrn::BusCamera& camera)
{
    const QString place = QString::fromStdString(camera.place());
    const std::lock_guard lock(m_mutex);
    if (!isStillFree(camera)) {
        return {};
    }
    const Visit visit(m_factory);
    m_factory.setProperty(IFactory::devicesProperty, QStringList{place});
    m_factory.enumDevice();
    return m_factory.property(IFactory::deviceSerialsProperty).toMap().value(place).toString();
}

void DeviceOpener::close(const QString& serial)
{
    const std::lock_guard lock(m_mutex);
    const Visit visit(m_factory);
    const QString place = m_factory.property(IFactory::deviceSerialsProperty).toMap().key(serial);
    if (!place.isEmpty()) {
        m_factory.setProperty(IFactory::devicesProperty, QStringList{'-' + place});
        m_factory.enumDevice();
    }
}

/// Other threads and programs may have been quicker than whoever saw the camera free.
bool DeviceOpener::isStillFree(const zrn::BusCamera& camera) const
{
    const std::vector<zrn::BusCamera> cameras = m_readBus();
    return std::any_of(cameras.begin(), cameras.end(), [&camera](const zrn::BusCamera& now) {
        return now.place() == camera.place() && now.use != zrn::Use::Held;
    });
}

} // namespace zrnhost
