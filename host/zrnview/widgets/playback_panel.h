#pragma once

#include "zrnview/device/player.h"

#include <QFrame>
#include <QLabel>
#include <QThread>

class QComboBox;
class QListWidget;
class QToolButton;

namespace zrnview
{

class ElidedLabel;
class FramePanel;
class NoticeBar;
class TimeLine;

/// A recording in the window: its images, and the means to move in it.
class PlaybackPanel : public QFrame
{
    Q_OBJECT

public:
    explicit PlaybackPanel(const QString& path, QWidget* parent = nullptr);
    ~PlaybackPanel() override;

    FramePanel& frames() { return *m_frames; }
    NoticeBar& notice() { return *m_notice; }
    TimeLine& slider() { return *m_slider; }
    QListWidget& events() { return *m_events; }
    QToolButton& eventsButton() { return *m_eventsButton; }
    QToolButton& playButton() { return *m_play; }
    QToolButton& verifyButton() { return *m_verify; }
    const RecordingInfo& info() const { return m_info; }
    QString positionText() const { return m_position->text(); }

    void togglePlaying();
    void step(int frames);

signals:
    void activated();
    void closed();
    void snapshotRequested();

private:
    QWidget* makeHeader();
    QWidget* makeTransport();
    void connectPlayer();
    void showInfo(const RecordingInfo& info);
    void showEvents();
    void showPosition(int position);
    void showVerdict(const QVector<int>& damaged);

    FrameStation m_station;
    QThread m_thread;
    Player* m_player; // lives in m_thread, deleted when it ends
    RecordingInfo m_info;
    bool m_playing = false;
    ElidedLabel* m_title;
    ElidedLabel* m_about;
    QLabel* m_position;
    QToolButton* m_play;
    QToolButton* m_verify;
    QComboBox* m_speed;
    TimeLine* m_slider;
    QToolButton* m_eventsButton;
    QListWidget* m_events;
    NoticeBar* m_notice;
    FramePanel* m_frames;
};

} // namespace zrnview
