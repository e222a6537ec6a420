#pragma once

#include "client/camera_recorder.h"
#include "zrnview/device/camera_reports.h"
#include "zrnview/device/frame_station.h"

#include <QObject>
#include <QTimer>

#include <map>
#include <mutex>

namespace zrnview
{

/// Makes every call to one camera, on the thread that this object lives in, and finds the camera
/// again when it is lost: a running stream does that by itself, otherwise it is done here.
///
/// Thread safety: the slots run on the object's thread; request() may be called from any.
class CameraWorker : public QObject
{
    Q_OBJECT

public:
    explicit CameraWorker(FrameStation& station);
    ~CameraWorker() override;

    /// Asks for a setting to be written. Of several requests for one setting that wait, only the
    /// newest is carried out, so that a dragged slider does not queue up. Thread-safe.
    void request(Setting setting, qint64 value);

public slots:
    /// Connects a camera that was opened.
    void connectTo(const std::shared_ptr<zrn::Driver>& driver, const zrn::BusCamera& camera);
    /// Takes the camera again that was given back, or could not be connected.
    void take();
    /// Stops and gives the camera back.
    void giveBack();
    void startStream();
    void stopStream();
    /// Resets the camera's state.
    void resetCamera();
    void discardFrames();
    void writeProperty(const QByteArray& key, const zrn::Value& value);
    /// Whether propertiesRead() comes once a second.
    void watchProperties(bool wanted);
    /// Takes part in a session with all further frames.
    void startRecording(const std::shared_ptr<zrn::RecordingSession>& session);
    void stopRecording();
    /// Writes how the camera is set to a file that loadSettings() and zrncam read.
    void saveSettings(const QString& path);
    /// Sets the camera as the file says.
    void loadSettings(const QString& path);

signals:
    void connected(const zrnview::CameraFacts& facts);
    void healthChanged(const zrnview::CameraHealth& health);
    void settingsRead(const zrnview::SettingReadings& readings);
    void propertiesRead(const zrnview::PropertyReadings& readings);
    /// @param operation what was tried, for the user
    void answered(const QString& operation, ErrorCode code);
    void recordingStarted(const std::shared_ptr<zrn::CameraRecorder>& recorder);
    void recordingRefused(const QString& why);
    void settingsSaved(const QString& path);
    void settingsLoaded(const QString& path);
    /// A file of settings could not be written, read or applied.
    void settingsFileFailed(const QString& why);
    /// Why no frame may be arriving; sent when a stream has become silent.
    void silenceExplained(const QStringList& findings);

private:
    /// What takes the frames of the stream, and what happens to it, beside the station.
    struct Sink {
        std::shared_ptr<zrn::CameraRecorder> recorder;
        const zrn::Stream* stream = nullptr;
    };

    /// Whether there is a camera that can be asked for something.
    bool isConnected() const;
    void carryOut(const QString& name, const std::function<void()>& operation);
    void open(const std::function<void()>& operation);
    void find();
    void welcome();
    void watch();
    void note(const zrn::StreamEvent& event);
    void carryOutRequests();
    CameraState stateNow(bool answers) const;
    bool isFrameOverdue() const;
    void judgeControls(bool isAnswered);
    /// Takes a frame, on the stream's thread.
    void accept(const zrn::Frame& frame, bool isFirst);
    void setSink(Sink sink);
    Sink sink();

    FrameStation& m_station;
    std::shared_ptr<zrn::Driver> m_driver;
    zrn::CameraChoice m_choice;
    std::shared_ptr<zrn::Camera> m_camera; // once it was connected
    std::unique_ptr<zrn::Stream> m_stream; // while it runs
    bool m_wantsStream = false;            // also while there is no camera
    CameraHealth m_health;
    int m_unansweredProbes = 0;    // in a row
    quint64 m_framesWhenHeard = 0; // at the first of them
    std::shared_ptr<zrn::CameraRecorder> m_recorder;
    qint64 m_orderBeforeRecording = 0;
    QTimer m_watchTimer; // runs while the camera is taken
    QTimer m_propertyTimer;

    std::mutex m_sinkMutex;
    Sink m_sink;

    std::mutex m_requestsMutex;
    std::map<Setting, qint64> m_requests;
};

} // namespace zrnview

Q_DECLARE_METATYPE(std::shared_ptr<zrn::CameraRecorder>)
