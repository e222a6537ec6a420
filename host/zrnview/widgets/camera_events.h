#pragma once

#include "zrnview/device/camera_device.h"
#include "zrnview/widgets/event_log.h"

#include <functional>
#include <map>

namespace zrnview
{

/// Tells what happens to one camera: what it was asked for, its settings, its recordings, and what
/// went wrong.
class CameraEvents : public QObject
{
    Q_OBJECT

public:
    using Note = std::function<void(EventLog::Tone, const QString&)>;

    /// @param device outlives this object
    CameraEvents(CameraDevice& device, Note note, QObject* parent);

private:
    void tell(EventLog::Tone tone, const QString& text);
    void tellAnswer(const QString& operation, ErrorCode code);
    void noteReadings(const SettingReadings& readings);
    void tellSettings();
    void tellHealth();
    void tellRecording();

    CameraDevice& m_device;
    const Note m_note;
    std::map<Setting, SettingReading> m_written; // that are still to be told
    QTimer m_settingsTimer;                      // a dragged slider is told once it stands still
    QTimer m_recordingTimer;                     // looks for what was recorded
    std::size_t m_toldParts = 0;                 // of the recording
    CameraState m_state = CameraState::Connecting;
    QString m_refusal;
    bool m_answersControls = true;
};

} // namespace zrnview
