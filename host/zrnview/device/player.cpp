#include "zrnview/device/player.h"

#include "client/error.h"

#include <QFile>
#include <QJsonDocument>
#include <QVector>

#include <algorithm>

namespace zrnview
{
namespace
{

constexpr int verifyingStep = 16; ///< frames between two reports

double secondsOf(std::chrono::nanoseconds time)
{
    return std::chrono::duration<double>(time).count();
}

} // namespace

Player::Player(FrameStation& station)
    : m_station(station)
    , m_timer(this)
{
    qRegisterMetaType<RecordingInfo>();
    qRegisterMetaType<QVector<int>>();
    m_timer.setSingleShot(true);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &Player::advance);
}

void Player::open(const QString& path)
{
    pause();
    try {
        m_recording = std::make_unique<zrn::Recording>(QFile::encodeName(path).toStdString());
        RecordingInfo info;
        info.path = path;
        info.metadata =
            QJsonDocument::fromJson(QByteArray::fromStdString(m_recording->metadata())).object();
        info.frames = m_recording->frameCount();
        info.seconds = secondsOf(m_recording->duration());
        info.bytes = m_recording->bytes();
        info.complete = m_recording->isComplete();
        info.lostBytes = m_recording->lostBytes();
        info.events = eventsOf(*m_recording);
        emit opened(info);
        seek(0);
    } catch (const zrn::Error& error) {
        emit failed(QString::fromUtf8(error.what()));
    }
}

void Player::play()
{
    if (!m_recording || m_recording->frameCount() == 0) {
        return;
    }
    if (m_position + 1 >= m_recording->frameCount()) {
        show(0);
    }
    m_anchorTime = Clock::now();
    m_anchorNanoseconds = m_shownNanoseconds;
    setPlaying(true);
    scheduleNext();
}

void Player::pause()
{
    m_timer.stop();
    setPlaying(false);
}

void Player::seek(int position)
{
    if (!m_recording || m_recording->frameCount() == 0) {
        return;
    }
    show(std::clamp(position, 0, m_recording->frameCount() - 1));
    if (m_playing) {
        play();
    }
}

void Player::setSpeed(double factor)
{
    m_speed = factor;
    if (m_playing) {
        play();
    }
}

void Player::verify()
{
    if (!m_recording) {
        return;
    }
    pause();
    const auto damage = m_recording->damage([this](int position) {
        if (position % verifyingStep == 0) {
            emit verifying(position);
        }
    });
    QVector<int> damaged;
    for (const auto& [position, why] : damage) {
        damaged.append(position);
    }
    emit verified(damaged);
}

void Player::show(int position)
{
    m_position = position;
    emit positionChanged(position);
    try {
        LiveFrame live;
        live.frame = m_recording->frame(position);
        live.isFirst = position == 0;
        const std::chrono::nanoseconds arrival = m_recording->sinceStart(position);
        m_shownNanoseconds = arrival.count();
        live.seconds = secondsOf(arrival);
        live.handedOver = Clock::now();
        m_station.deliver(std::move(live));
    } catch (const zrn::Error& error) {
        emit failed(QString::fromUtf8(error.what()));
    }
}

void Player::advance()
{
    show(m_position + 1);
    scheduleNext();
}

void Player::scheduleNext()
{
    if (m_position + 1 >= m_recording->frameCount()) {
        setPlaying(false);
        return;
    }
    // A frame whose header is damaged is due at once, and reported when it is shown.
    qint64 recorded = 0;
    try {
        recorded = m_recording->sinceStart(m_position + 1).count() - m_anchorNanoseconds;
    } catch (const zrn::Error&) {
        recorded = m_shownNanoseconds - m_anchorNanoseconds;
    }
    const auto due =
        m_anchorTime +
        std::chrono::nanoseconds(static_cast<qint64>(static_cast<double>(recorded) / m_speed));
    const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(due - Clock::now());
    m_timer.start(std::max(wait, std::chrono::milliseconds(0)));
}

void Player::setPlaying(bool playing)
{
    if (playing != m_playing) {
        m_playing = playing;
        emit playingChanged(playing);
    }
}

} // namespace zrnview
