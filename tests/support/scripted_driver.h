#pragma once

#include "camera_interface.h"
#include "client/driver.h"
#include "client/frame.h"
#include "factory_interface.h"
#include "frame_times_interface.h"

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
    std::atomic<bool> silent = false;  ///< streams, but sends nothing
    std::atomic<bool> deaf = false;    ///< frames go on, control requests fail
    std::atomic<bool> hanging = false; ///< control requests are not answered
    // What its operations answer as long as it can be reached.
    std::atomic<ErrorCode> connectAnswer = ErrorCode::Success;
    std::atomic<ErrorCode> exposureAnswer = ErrorCode::Success; ///< of writing
    std::atomic<ErrorCode> exposureReadAnswer = ErrorCode::Success;
    std::atomic<ErrorCode> gainAnswer = ErrorCode::Success; ///< of writing
    std::atomic<ErrorCode> resetAnswer = ErrorCode::Success;
    std::atomic<ErrorCode> startAnswer = ErrorCode::Success;
    std::atomic<ErrorCode> grabAnswer = ErrorCode::Success;
    std::atomic<int> frameMilliseconds = 10;  ///< time between two frames
    std::atomic<quint32> skipNext = 0;        ///< frame numbers to leave out before the next frame
    std::atomic<quint32> skipFrom = 0;        ///< none below this one is left out
    std::atomic<bool> heldElsewhere = false;  ///< another program has it open
    std::atomic<int> openCount = 0;           ///< how often it was opened
    std::atomic<int> connectCount = 0;        ///< how often it was connected
    std::atomic<int> startCount = 0;          ///< how often its stream was started
    std::atomic<int> connectMilliseconds = 0; ///< what that takes
    std::atomic<int> misreadings = 0;         ///< so many of the next openings give a wrong serial
    std::atomic<int> resets = 0;
    std::atomic<bool> tellsTimes = false; ///< the driver has the times of frames
    std::atomic<bool> seesPayloads = true;
    // What the next frame tells of losses.
    std::atomic<quint64> ringLosses = 0;
    std::atomic<quint64> libraryLosses = 0;
    std::function<void()> onGrab; ///< called when a grab begins to wait; set before streaming

    std::mutex mutex; // guards what follows
    unsigned int exposure = 1000;
    unsigned short gain = 16;
    int gamma = 100;
    int sharpness = 50;
    int hue = 20;
    int saturation = 60;
    QString readSerial; ///< since it was plugged in

    std::atomic<quint32> frameNumber = 0;
    std::atomic<int> generation = 0; ///< differs after each opening, which closes what was open
    std::atomic<bool> isOpen = false;
    const unsigned bus = nextBus();    ///< one for each device, so that places differ
    std::atomic<unsigned> address = 1; ///< another one after each plugging in

    static unsigned nextBus();
    /// Where it is on the bus, as "001/002".
    QString place() const;
    void unplug() { plugged = false; }
    /// Plugs it in again, with the values of its own start.
    void replug();
};

/// The bytes of one image, pixels and trailer, as the camera delivers them.
QByteArray scriptedImage(const ScriptedDevice& device, quint32 number, char letter);

/// The bytes of a frame's image, to be compared with those.
QByteArray bytesOf(const zrn::Image& image);

/// A driver for scripted devices.
class ScriptedFactory : public IFactory
{
    Q_OBJECT

public:
    using Devices = std::vector<std::shared_ptr<ScriptedDevice>>;

    /// @param canChoose whether chosen devices can be opened alone
    explicit ScriptedFactory(Devices devices, bool canChoose = false);
    ~ScriptedFactory() override;

    QString name() override { return QStringLiteral("Scripted"); }
    QVersionNumber version() override { return QVersionNumber(1, 2, 3); }
    int enumDevice() override;
    BaseDeviceSpace::DeviceInterface* createDevice() override;
    ErrorCode deleteDevice(BaseDeviceSpace::DeviceInterface*& device) override;

    Q_INVOKABLE int liveCameras();

    /// What the kernel would show of the devices.
    static zrn::BusReaders readersOf(const Devices& devices);

    /// A driver for them that can choose, on a bus that has nothing else.
    static std::shared_ptr<zrn::Driver> driverFor(const Devices& devices);

private:
    void openChosen(const QStringList& places);

    Devices m_devices;
    std::mutex m_mutex;
    Devices m_enumerated; // those that are open
    std::vector<CameraSpace::CameraInterface*> m_cameras;
};
