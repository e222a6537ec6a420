#pragma once

#include "zrnview/device/camera_device.h"
#include "zrnview/device/driver_host.h"

namespace zrnview
{

/// The driver and all cameras that were ever found, as the window sees them: searches the bus when
/// asked to, and by itself when a lost camera seems to have come back.
///
/// A search closes every camera for a moment, streaming ones included. One that was not asked for
/// therefore happens only where a camera is lost or none is connected, and never during a
/// recording.
///
/// Thread safety: thread-bound to the GUI thread.
class Bench : public QObject
{
    Q_OBJECT

public:
    enum class State { Loading, Failed, Searching, Ready };

    Bench(FactoryMaker makeFactory, BusReader readBus, QObject* parent = nullptr);
    ~Bench() override;

    void start();
    void search();

    State state() const { return m_state; }
    /// Name and version of the driver, or why it could not be loaded.
    const QString& description() const { return m_description; }
    const std::vector<CameraDevice*>& devices() const { return m_devices; }
    const BusView& bus() const { return m_bus; }
    /// Whether the bus holds a camera that only a search would bring in.
    bool hasNewCamera() const;
    bool isRecording() const;

    /// Ends all threads. @return false when a device call hangs, so that the process can only be
    /// left without tidying up.
    bool shutDown();

signals:
    void stateChanged();
    void busChanged();
    void deviceAdded(zrnview::CameraDevice* device);

private:
    void beginSearch();
    void enumerateWhenReleased();
    void takeOver(const std::vector<ConnectedCameraPointer>& found);
    void considerSearch();
    void searchAgain();
    CameraDevice& deviceFor(const ConnectedCamera& connected);
    int liveCount() const;
    void setState(State state);

    QThread m_thread;
    DriverHost* m_host; // lives in m_thread, deleted when it ends
    State m_state = State::Loading;
    QString m_description;
    std::vector<CameraDevice*> m_devices; // children of this object
    BusView m_bus;
    bool m_triedSinceChange = false; // searched since the bus last changed
    QTimer m_retryTimer;
    int m_toRelease = 0;
};

} // namespace zrnview
