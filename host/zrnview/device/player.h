#pragma once

#include "zrnview/device/frame_station.h"
#include "zrnview/device/recorded_events.h"

#include <QJsonObject>
#include <QObject>
#include <QTimer>

namespace zrnview
{

/// What a recording says about itself.
struct RecordingInfo {
    QString path;
    QJsonObject metadata;
    int frames = 0;
    double seconds = 0;
    quint64 bytes = 0;
    bool complete = true;
    quint64 lostBytes = 0; ///< behind the last whole frame of one that is not complete
    std::vector<RecordedEvent> events;
};

/// Plays a recording into a station, on the thread that this object lives in.
class Player : public QObject
{
    Q_OBJECT

public:
    explicit Player(FrameStation& station);

public slots:
    void open(const QString& path);
    /// Plays on from here, or from the start when the end was reached.
    void play();
    void pause();
    /// Shows one frame. @param position from 0
    void seek(int position);
    /// @param factor 1 is the speed of the recording
    void setSpeed(double factor);
    /// Reads every frame and checks it.
    void verify();

signals:
    void opened(const zrnview::RecordingInfo& info);
    void failed(const QString& why);
    void positionChanged(int position);
    void playingChanged(bool playing);
    void verifying(int position);
    /// @param damaged positions of the frames that could not be read
    void verified(const QVector<int>& damaged);

private:
    void show(int position);
    void advance();
    void scheduleNext();
    void setPlaying(bool playing);

    FrameStation& m_station;
    std::unique_ptr<zrn::Recording> m_recording;
    QTimer m_timer;
    int m_position = -1;
    bool m_playing = false;
    double m_speed = 1;
    qint64 m_shownNanoseconds = 0;  // recorded time of the last frame that could be shown
    Clock::time_point m_anchorTime; // when the frame was shown that playing started from
    qint64 m_anchorNanoseconds = 0; // recorded time of that frame
};

} // namespace zrnview

Q_DECLARE_METATYPE(zrnview::RecordingInfo)
