#include "factory_interface.h"
#include "scripted_driver.h"

#include <QFile>
#include <QStringList>

#include <cstdio>

namespace
{

ScriptedFactory::Devices makeDevices()
{
    ScriptedFactory::Devices devices;
    for (const char* serial : {"ZR1001", "ZR1002", "ZR18446744073709551615"}) {
        devices.push_back(std::make_shared<ScriptedDevice>(QString::fromLatin1(serial)));
    }
    return devices;
}

} // namespace

/// The scripted driver as a plugin. Each enumeration reads two variables of the environment:
/// ZRN_FAKE_CAMERAS is the number of cameras, 0 to 3; ZRN_FAKE_FAULT names faults, separated by
/// commas. ZRN_FAKE_GRABS names a file that gets a byte when a grab begins to wait.
class FakeDriver : public ScriptedFactory
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "Quorvane.Hardware.ZRNCameraFactory.v2.0" FILE "zrncamera.json")
    Q_INTERFACES(IFactory)

public:
    FakeDriver()
        : FakeDriver(makeDevices())
    {
    }

    QString name() override { return QStringLiteral("FakeDriver"); }
    QVersionNumber version() override { return QVersionNumber(9, 8, 7); }

    int enumDevice() override
    {
        bool isGiven = false;
        const int wanted = qEnvironmentVariableIntValue("ZRN_FAKE_CAMERAS", &isGiven);
        int index = 0;
        for (const auto& device : m_devices) {
            device->plugged = !isGiven || index < wanted;
            cause(*device, index);
            ++index;
        }
        const int found = ScriptedFactory::enumDevice();
        std::printf("cameras found:%d \n", found);
        std::fflush(stdout);
        return found;
    }

private:
    static constexpr quint32 lastFrame = 5; ///< of a camera that dies

    explicit FakeDriver(const Devices& devices)
        : ScriptedFactory(devices)
        , m_devices(devices)
    {
    }

    static void cause(ScriptedDevice& device, int index)
    {
        const QStringList faults = qEnvironmentVariable("ZRN_FAKE_FAULT").split(QLatin1Char(','));
        const auto answer = [&faults](const char* fault, ErrorCode code) {
            return faults.contains(QLatin1String(fault)) ? code : ErrorCode::Success;
        };
        device.connectAnswer =
            index == 1 ? answer("second-not-open", ErrorCode::NodeNotOpen) : ErrorCode::Success;
        device.exposureReadAnswer = answer("exposure-unreadable", ErrorCode::ExposureReadFailed);
        device.gainAnswer = answer("gain-refused", ErrorCode::GainWriteFailed);
        device.resetAnswer = answer("no-reset", ErrorCode::CommandFailed);
        device.startAnswer = answer("no-start", ErrorCode::StreamStartFailed);
        device.grabAnswer = answer("split-fails", ErrorCode::SplitFailed);
        const QString grabs = qEnvironmentVariable("ZRN_FAKE_GRABS");
        const bool dies = faults.contains(QLatin1String("dies"));
        device.onGrab = [grabs, dies, &device] {
            QFile file(grabs);
            if (!grabs.isEmpty() && file.open(QFile::Append)) {
                file.write("g");
            }
            device.silent = device.silent || (dies && device.frameNumber == lastFrame);
        };
        // Without one a frame is there at once, whatever a grab would wait.
        device.frameMilliseconds = faults.contains(QLatin1String("no-period")) ? 0 : 2;
        device.silent = faults.contains(QLatin1String("silent"));
        device.hanging = faults.contains(QLatin1String("hangs"));
        device.skipFrom = 5;
        device.skipNext = faults.contains(QLatin1String("gap")) ? 3 : 0;
    }

    const Devices m_devices;
};

#include "fake_driver.moc"
