#pragma once

#include "zrnview/device/camera_worker.h"

#include <QElapsedTimer>
#include <QJsonObject>
#include <QThread>

namespace zrnview
{

/// One camera as the window sees it: asks without waiting, and knows the last answers. Stays while
/// its camera is unplugged or given back.
///
/// Thread safety: thread-bound to the GUI thread; device calls are made by threads of its own.
class CameraDevice : public QObject
{
    Q_OBJECT

public:
    /// @param camera that was opened, and is to be connected
    CameraDevice(const std::shared_ptr<zrn::Driver>& driver, const zrn::BusCamera& camera,
                 QObject* parent = nullptr);
    ~CameraDevice() override;

    const QString& serial() const { return m_serial; }
    const CameraFacts& facts() const { return m_facts; }
    const CameraHealth& health() const { return m_health; }
    FrameStation& station() { return m_station; }
    /// Last reading of a setting; null before the first.
    const SettingReading* reading(Setting setting) const;
    /// The running recording, or the last one until the next; null before the first.
    const std::shared_ptr<zrn::CameraRecorder>& recorder() const { return m_recorder; }
    bool isRecording() const;
    /// Whether the camera answers and can be asked for something.
    bool isConnected() const;
    bool isStreaming() const;
    /// Whether the camera is neither here nor on its way.
    bool isAway() const { return !isConnected() && m_health.state != CameraState::Connecting; }
    /// Whether the camera's thread has been waiting for a device call for unusually long.
    bool isStuck() const;
    /// What a file made from this camera should tell about it.
    QJsonObject metadata() const;

    /// Takes the camera again that was given back.
    void take();
    /// Stops and closes the camera, for other programs.
    void giveBack() { ask(&CameraWorker::giveBack); }
    void startStream() { ask(&CameraWorker::startStream); }
    void stopStream() { ask(&CameraWorker::stopStream); }
    void set(Setting setting, qint64 value)
    {
        m_wishes[setting] = value;
        m_worker->request(setting, value);
    }
    /// Settings as a file, also for zrncam.
    void saveSettings(const QString& path) { ask(&CameraWorker::saveSettings, path); }
    void loadSettings(const QString& path) { ask(&CameraWorker::loadSettings, path); }
    void resetCamera() { ask(&CameraWorker::resetCamera); }
    void discardFrames() { ask(&CameraWorker::discardFrames); }
    void writeProperty(const QByteArray& key, const zrn::Value& value)
    {
        ask(&CameraWorker::writeProperty, key, value);
    }
    void watchProperties(bool wanted) { ask(&CameraWorker::watchProperties, wanted); }
    /// Takes part in a session; once only.
    void startRecording(const std::shared_ptr<zrn::RecordingSession>& session)
    {
        ask(&CameraWorker::startRecording, session);
    }
    void stopRecording() { ask(&CameraWorker::stopRecording); }

    /// Ends the camera's thread and finishes its recording. @return whether it ended in time; if
    /// not, a device call hangs.
    bool shutDown(int milliseconds);

signals:
    void factsChanged();
    void healthChanged();
    void settingsRead(const zrnview::SettingReadings& readings);
    void propertiesRead(const zrnview::PropertyReadings& readings);
    void answered(const QString& operation, ErrorCode code);
    void recordingChanged();
    void recordingRefused(const QString& why);
    void silenceExplained(const QStringList& findings);
    /// A value that set() was called with was taken.
    void settingChosen(zrnview::Setting setting, qint64 value);
    void settingsSaved(const QString& path);
    void settingsLoaded(const QString& path);
    void settingsFileFailed(const QString& why);

private:
    /// Calls the worker on its thread, without waiting.
    template <typename Operation, typename... Arguments>
    void ask(Operation operation, const Arguments&... arguments)
    {
        QMetaObject::invokeMethod(m_worker, [worker = m_worker, operation, arguments...] {
            (worker->*operation)(arguments...);
        });
    }
    void noteFacts(const CameraFacts& facts);
    void noteHealth(const CameraHealth& health);
    void noteReadings(const SettingReadings& readings);

    const QString m_serial;
    FrameStation m_station;
    QThread m_thread;
    CameraWorker* m_worker; // lives in m_thread, deleted when it ends
    CameraFacts m_facts;
    CameraHealth m_health;
    std::map<Setting, SettingReading> m_readings;
    std::map<Setting, qint64> m_wishes; // last values of set()
    std::shared_ptr<zrn::CameraRecorder> m_recorder;
    QElapsedTimer m_lastSign;
    bool m_expectsSigns = false; // the camera's thread reports several times a second
};

} // namespace zrnview
