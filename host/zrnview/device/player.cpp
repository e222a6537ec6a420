#include "zrnview/device/player.h"

#include <QVector>

#include <algorithm>

namespace zrnview
{
namespace
{

constexpr int verifyingStep = 16; ///< frames between two reports

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
        m_reader = std::make_unique<zrnrecording::RecordingReader>(path);
        RecordingInfo info;
        info.path = path;
        info.metadata = m_reader->metadata();
        info.frames = m_reader->frameCount();
        info.seconds = static_cast<double>(m_reader->durationNanoseconds()) * 1e-9;
        info.bytes = m_reader->bytes();
        info.complete = m_reader->isComplete();
        info.lostBytes = m_reader->lostBytes();
        emit opened(info);
        seek(0);
    } catch (const zrnrecording::RecordingError& error) {
        emit failed(QString::fromUtf8(error.what()));
    }
}

void Player::play()
{
    if (!m_reader || m_reader->frameCount() == 0) {
        return;
    }
    if (m_position + 1 >= m_reader->frameCount()) {
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
    if (!m_reader || m_reader->frameCount() == 0) {
        return;
    }
    show(std::clamp(position, 0, m_reader->frameCount() - 1));
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
    if (!m_reader) {
        return;
    }
    pause();
    QVector<int> damaged;
    for (int position = 0; position < m_reader->frameCount(); ++position) {
        try {
            m_reader->frame(position);
        } catch (const zrnrecording::RecordingError&) {
            damaged.append(position);
        }
        if (position % verifyingStep == 0) {
            emit verifying(position);
        }
    }
    emit verified(damaged);
}

void Player::show(int position)
{
    m_position = position;
    emit positionChanged(position);
    try {
        LiveFrame live;
        auto frame = std::make_shared<zrnrecording::Frame>(m_reader->frame(position));
        m_shownNanoseconds = frame->arrivalNanoseconds;
        live.seconds = static_cast<double>(frame->arrivalNanoseconds) * 1e-9;
        live.frame = std::move(frame);
        live.handedOver = Clock::now();
        m_station.deliver(std::move(live));
    } catch (const zrnrecording::RecordingError& error) {
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
    if (m_position + 1 >= m_reader->frameCount()) {
        setPlaying(false);
        return;
    }
    // A frame whose header is damaged is due at once, and reported when it is shown.
    qint64 recorded = 0;
    try {
        recorded = m_reader->header(m_position + 1).arrivalNanoseconds - m_anchorNanoseconds;
    } catch (const zrnrecording::RecordingError&) {
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
