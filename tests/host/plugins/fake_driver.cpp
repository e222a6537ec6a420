#include "factory_interface.h"
#include "fake_camera.h"

#include <algorithm>
#include <memory>
#include <vector>

/// A driver without hardware. Variables of the environment: ZRN_FAKE_CAMERAS is the number of
/// cameras, 0 to 3; ZRN_FAKE_FAULT names faults, separated by commas.
class FakeDriver : public IFactory
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "Quorvane.Hardware.ZRNCameraFactory.v2.0" FILE "zrncamera.json")
    Q_INTERFACES(IFactory)

public:
    QString name() override { return QStringLiteral("FakeDriver"); }
    QVersionNumber version() override { return QVersionNumber(9, 8, 7); }

    int enumDevice() override
    {
        bool given = false;
        const int cameras = qEnvironmentVariableIntValue("ZRN_FAKE_CAMERAS", &given);
        FakeCamera::cameraCount = given ? cameras : 3;
        return FakeCamera::cameraCount;
    }

    BaseDeviceSpace::DeviceInterface* createDevice() override
    {
        m_cameras.push_back(std::make_unique<FakeCamera>());
        return m_cameras.back().get();
    }

    ErrorCode deleteDevice(BaseDeviceSpace::DeviceInterface*& device) override
    {
        const auto found =
            std::find_if(m_cameras.begin(), m_cameras.end(),
                         [device](const auto& camera) { return camera.get() == device; });
        if (found == m_cameras.end()) {
            return ErrorCode::NothingEnumerated;
        }
        m_cameras.erase(found);
        device = nullptr;
        return ErrorCode::Success;
    }

    Q_INVOKABLE int liveCameras() const { return static_cast<int>(m_cameras.size()); }

private:
    std::vector<std::unique_ptr<FakeCamera>> m_cameras;
};

#include "fake_driver.moc"
