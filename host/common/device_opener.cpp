#include "common/device_opener.h"

#include "common/camera.h"

#include <QStringList>
#include <QVariant>

#include <algorithm>
#include <memory>

namespace zrnhost
{

BusReaders busReaders()
{
    const auto bus = std::make_shared<zrn::Bus>();
    return {[bus] { return bus->cameras(); }, [bus] { return bus->camerasAndHolders(); },
            [bus](const zrn::BusCamera& camera, const std::string& serial) {
                bus->remember(camera, serial);
            }};
}

bool DeviceOpener::canChoose() const
{
    return m_factory.property(IFactory::deviceSerialsProperty).isValid();
}

QString DeviceOpener::open(const zrn::BusCamera& camera)
{
    const QString place = QString::fromStdString(camera.place());
    const std::lock_guard lock(m_mutex);
    if (!isStillFree(camera)) {
        return {};
    }
    m_factory.setProperty(IFactory::devicesProperty, QStringList{place});
    m_factory.enumDevice();
    return m_factory.property(IFactory::deviceSerialsProperty).toMap().value(place).toString();
}

void DeviceOpener::close(const QString& serial)
{
    // Disconnected when it goes.
    Camera camera(m_factory);
    camera->connectDeviceBySerial(serial);
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
