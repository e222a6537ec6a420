#pragma once

#include "zrnview/device/camera_device.h"
#include "zrnview/widgets/elided_label.h"

#include <QElapsedTimer>
#include <QFrame>
#include <QProgressBar>
#include <QTimer>

class QPushButton;

namespace zrnview
{

/// How the recording of one camera is going, and how the last one ended.
class RecordStrip : public QFrame
{
    Q_OBJECT

public:
    /// @param device outlives the strip
    explicit RecordStrip(CameraDevice& device, QWidget* parent = nullptr);

    QString text() const { return m_text->text(); }
    QPushButton& triggerButton() { return *m_trigger; }
    /// Shows that a recording could not be started.
    void showRefusal(const QString& why);

signals:
    void openRequested(const QString& path);
    void triggerRequested();

private:
    void refresh();
    void showRunning();
    QString runningText(const zrn::CameraRecorderProgress& progress) const;
    void showFinished();

    CameraDevice& m_device;
    QLabel* m_text;
    ElidedLabel* m_file;
    QProgressBar* m_queue;
    QPushButton* m_trigger;
    QPushButton* m_open;
    QPushButton* m_close;
    QTimer m_timer;
    QElapsedTimer m_clock; // since the recording began
};

/// "1.5 GB": a number of bytes for people.
QString byteText(double bytes);
/// "1:05:09" or "5:09"
QString durationText(double seconds);
/// "100 frames, 2 missing, 1.5 GB in 5:09"
QString accountOf(const zrn::RecordedPart& part);
QString pathOf(const zrn::RecordedFile& file);

} // namespace zrnview
