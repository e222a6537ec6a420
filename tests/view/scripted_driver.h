#pragma once

#include "camera_interface.h"
#include "common/usb_bus.h"
#include "factory_interface.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

/// A camera on a bus that exists only here. Its controls share carriers as those of a real one.
struct ScriptedDevice {
    explicit ScriptedDevice(const QString& serialText)
        : serial(serialText)
    {
    }

    const QString serial;
    int width = 64;
    int height = 48;
    int sensorCount = 2;

    std::atomic<bool> plugged = true;
    std::atomic<bool> silent = false;        ///< streams, but sends nothing
    std::atomic<bool> deaf = false;          ///< frames go on, control requests fail
    std::atomic<bool> hanging = false;       ///< control requests are not answered
    std::atomic<int> exposureAnswer = 0;     ///< result code of exposure writes
    std::atomic<int> connectAnswer = 0;      ///< result code of connecting
    std::atomic<int> frameMilliseconds = 10; ///< time between two frames
    std::atomic<quint32> skipNext = 0;       ///< frame numbers to leave out before the next frame
    std::atomic<int> plugCount = 1;          ///< how often it was plugged in
    std::atomic<int> openCount = 0;          ///< how often a search opened it
    std::atomic<int> resets = 0;

    std::mutex mutex; // guards what follows
    unsigned int exposure = 1000;
    unsigned short gain = 16;
    int gamma = 100;
    int sharpness = 50;
    int hue = 20;
    int saturation = 60;

    std::atomic<quint32> frameNumber = 0;
    std::atomic<int> generation = 0; ///< differs after each search, which closes what was open

    void unplug() { plugged = false; }
    /// Plugs it in again, with the values of its own start.
    void replug();
};

/// The bytes of one image, pixels and trailer, as the camera delivers them.
QByteArray scriptedImage(const ScriptedDevice& device, quint32 number, char letter);

/// A driver for scripted devices.
class ScriptedFactory : public IFactory
{
    Q_OBJECT

public:
    using Devices = std::vector<std::shared_ptr<ScriptedDevice>>;

    explicit ScriptedFactory(Devices devices)
        : m_devices(std::move(devices))
    {
    }
    ~ScriptedFactory() override;

    QString name() override { return QStringLiteral("Scripted"); }
    QVersionNumber version() override { return QVersionNumber(1, 2, 3); }
    int enumDevice() override;
    BaseDeviceSpace::DeviceInterface* createDevice() override;
    ErrorCode deleteDevice(BaseDeviceSpace::DeviceInterface*& device) override;

    /// What the kernel would show of the devices.
    static std::vector<zrnhost::UsbCamera> busOf(const Devices& devices);

private:
    Devices m_devices;
    std::mutex m_mutex;
    Devices m_enumerated;
    std::vector<CameraSpace::CameraInterface*> m_cameras;
};
