#pragma once

#include "zrnview/device/camera_device.h"
#include "zrnview/device/driver_host.h"

#include <chrono>
#include <limits>
#include <map>
#include <set>

namespace zrnview
{

/// How long a bench waits.
struct BenchTimes {
    std::chrono::milliseconds retry = std::chrono::seconds(1); ///< between two tries
    /// For a camera that another program has, which may only be looking at it.
    std::chrono::milliseconds patience = std::chrono::seconds(3);
};

/// The driver and the cameras of this program, as the window sees them: takes new cameras when it
/// is asked to. Those that are known find their cameras again by themselves.
///
/// Each camera is opened and closed by itself. What this program does not use stays closed, for
/// other programs; what those use is left to them.
///
/// Thread safety: thread-bound to the GUI thread.
class Bench : public QObject
{
    Q_OBJECT

public:
    enum class State { Loading, Failed, Ready };

    explicit Bench(DriverMaker makeDriver, QObject* parent = nullptr);
    ~Bench() override;

    /// How many cameras are taken by themselves, as they are found free; to be set before start().
    void setInitialCameras(int count) { m_initialCameras = count; }
    /// To be set before start() as well.
    void setTimes(const BenchTimes& times) { m_times = times; }
    void start();
    /// Looks at the bus at once, and tries anew what could not be opened.
    void lookAgain();
    /// Takes the camera at a port, if it is free or becomes free in some seconds. deviceAdded()
    /// follows for a new one.
    void take(const QString& port);

    State state() const { return m_state; }
    /// Name and version of the driver, or why it could not be loaded.
    const QString& description() const { return m_description; }
    const std::vector<CameraDevice*>& devices() const { return m_devices; }
    const std::vector<zrn::BusCamera>& bus() const { return m_bus; }
    /// The cameras on the bus that this program does not have open.
    std::vector<zrn::BusCamera> others() const;
    bool isRecording() const;
    /// Records what the plan wants of all cameras that stream, or of one, as one session.
    /// @throws zrn::Error
    void record(const zrn::RecordingPlan& plan, CameraDevice* only = nullptr);
    /// Ends the recording that a camera takes part in, for all that do.
    void stopRecording(const CameraDevice& device);
    /// Triggers the recordings that wait for it.
    void trigger();

    /// Ends all threads. @return false when a device call hangs, so that the process can only be
    /// left without tidying up.
    bool shutDown();

signals:
    void stateChanged();
    void busChanged();
    /// @param isAskedFor take() was called for it
    void deviceAdded(zrnview::CameraDevice* device, bool isAskedFor);

private:
    using Clock = std::chrono::steady_clock;

    void consider();
    void open(const zrn::BusCamera& camera);
    void forgetOldRequests();
    void noteOpened(const zrn::BusCamera& camera);
    bool isWanted(const zrn::BusCamera& camera) const;
    CameraDevice* deviceWith(const std::string& serial) const;
    void setState(State state);

    QThread m_thread;
    DriverHost* m_host; // lives in m_thread, deleted when it ends
    State m_state = State::Loading;
    std::shared_ptr<zrn::Driver> m_driver; // once it is loaded
    QString m_description;
    std::vector<CameraDevice*> m_devices; // children of this object
    std::vector<zrn::BusCamera> m_bus;
    int m_initialCameras = std::numeric_limits<int>::max(); // still to be taken
    std::map<std::string, Clock::time_point> m_askedFor;    // ports, until when
    bool m_isOpening = false;
    std::set<std::string> m_refused; // places, until the next try
    BenchTimes m_times;
    QTimer m_retryTimer;
};

} // namespace zrnview
