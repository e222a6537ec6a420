#pragma once

#include "zrnview/widgets/colour_memory.h"

#include <QFrame>
#include <QStringList>
#include <QTimer>

class QLabel;
class QPushButton;
class QToolButton;

namespace zrnview
{

class CameraDevice;
class ElidedLabel;
class FramePanel;
class NoticeBar;
class RecordStrip;

/// One camera in the window: its state, what is wrong with it, its recording, its images.
class CameraPanel : public QFrame
{
    Q_OBJECT

public:
    /// @param device outlives the panel
    explicit CameraPanel(CameraDevice& device, QWidget* parent = nullptr);

    CameraDevice& device() { return m_device; }
    FramePanel& frames() { return *m_frames; }
    NoticeBar& notice() { return *m_notice; }
    RecordStrip& recordStrip() { return *m_record; }
    QToolButton& streamButton() { return *m_streamButton; }
    QToolButton& recordButton() { return *m_recordButton; }
    QToolButton& snapshotButton() { return *m_snapshotButton; }

    /// Marks the panel that the controls beside it belong to.
    void setActive(bool active);
    void toggleStream();

signals:
    void activated();
    void closed();
    void snapshotRequested();
    /// Starts a recording, or stops the one that runs.
    void recordRequested();
    /// What became of something that was asked for.
    void told(const QString& what);

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    QWidget* makeHeader();
    void updateState();
    void updateNotice();
    void rememberColours();
    void balanceColours();

    CameraDevice& m_device;
    QLabel* m_dot;
    ElidedLabel* m_title;
    ElidedLabel* m_state;
    QToolButton* m_streamButton;
    QToolButton* m_snapshotButton;
    QToolButton* m_recordButton;
    NoticeBar* m_notice;
    QPushButton* m_restart;
    RecordStrip* m_record;
    FramePanel* m_frames;
    ColourMemory m_colours;
    QStringList m_findings;
    QTimer m_stuckTimer;
    bool m_active = false;
};

} // namespace zrnview
