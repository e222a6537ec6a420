#include "commands/stream_keeper.h"

#include "common/driver_error.h"
#include "common/property_keys.h"

#include <thread>

using zrnhost::DriverError;

namespace
{

QString textOf(Outage::Cause cause)
{
    return cause == Outage::Cause::Silent ? QStringLiteral("silent") : QStringLiteral("gone");
}

QString textOf(Outage::Repair repair)
{
    switch (repair) {
    case Outage::Repair::Restarted:
        return QStringLiteral("restarted");
    case Outage::Repair::Reconnected:
        return QStringLiteral("reconnected");
    default:
        return QStringLiteral("none");
    }
}

} // namespace

QString Outage::text() const
{
    const QString count = isMissingExact ? QStringLiteral("%1 frames missing")
                                         : QStringLiteral("at least %1 frames missing");
    const QString lost =
        isRenumbered ? QStringLiteral("the camera counts anew") : count.arg(missing);
    return QStringLiteral("at %1 s for %2 s: %3, repair: %4, %5")
        .arg(begin, 0, 'f', 2)
        .arg(seconds, 0, 'f', 2)
        .arg(textOf(cause), textOf(repair), lost);
}

QJsonObject Outage::json() const
{
    return {{QStringLiteral("begin"), begin},
            {QStringLiteral("seconds"), seconds},
            {QStringLiteral("cause"), textOf(cause)},
            {QStringLiteral("repair"), textOf(repair)},
            {QStringLiteral("missing"), static_cast<qint64>(missing)},
            {QStringLiteral("missingIsExact"), isMissingExact},
            {QStringLiteral("renumbered"), isRenumbered}};
}

StreamKeeper::StreamKeeper(Session& session, zrnhost::Camera& camera, const CaptureOptions& capture,
                           Interrupt& interrupt, Progress& progress)
    : m_session(session)
    , m_camera(camera)
    , m_capture(capture)
    , m_serial(camera.property(zrnhost::keys::serial).toString())
    , m_interrupt(interrupt)
    , m_progress(progress)
{
}

void StreamKeeper::start()
{
    m_stream.emplace(m_camera, m_interrupt);
}

void StreamKeeper::noteFrame(double second, const zrnhost::FrameStep& step)
{
    if (m_outage) {
        m_outage->missing = step.missing;
        m_outage->isRenumbered = step.restarted;
        m_outage->isMissingExact = !step.restarted && m_pace.isCountable(second - m_outage->begin);
        endOutage(second);
    } else if (m_lastFrame > 0.0) {
        m_pace.noteFrame(second - m_lastFrame, step);
    }
    m_lastFrame = second;
}

void StreamKeeper::repair()
{
    // A camera that answers and still sends nothing may have lost its mind: open it anew then.
    constexpr int enoughRestarts = 2;
    const bool online = isOnline();
    if (!m_outage) {
        beginOutage(online);
    } else if (!online) {
        m_outage->cause = Outage::Cause::Gone;
    }
    if (online && m_vainRestarts < enoughRestarts) {
        ++m_vainRestarts;
        if (restart()) {
            m_outage->repair = Outage::Repair::Restarted;
        }
    } else if (reconnect()) {
        m_vainRestarts = 0;
        m_outage->repair = Outage::Repair::Reconnected;
    }
}

void StreamKeeper::finish(double second)
{
    if (m_outage) {
        m_outage->repair = Outage::Repair::None;
        endOutage(second);
    }
    m_stream.reset();
}

bool StreamKeeper::isOnline()
{
    QVariant status;
    m_camera.readProperty(zrnhost::keys::heartBeat, status);
    return status.toMap().value(zrnhost::keys::online).toBool();
}

bool StreamKeeper::restart()
{
    m_stream.reset();
    return startQuietly();
}

bool StreamKeeper::reconnect()
{
    constexpr std::chrono::milliseconds pause(200);
    m_stream.reset();
    m_camera->disconnectDevice();
    if (m_session.reconnect(m_camera, m_serial) && startQuietly()) {
        return true;
    }
    std::this_thread::sleep_for(pause);
    return false;
}

bool StreamKeeper::startQuietly()
{
    try {
        applyCaptureOptions(m_camera, m_capture);
        m_stream.emplace(m_camera, m_interrupt);
        return true;
    } catch (const DriverError&) {
        return false; // the next repair goes further
    }
}

void StreamKeeper::beginOutage(bool online)
{
    m_outage = Outage{};
    m_outage->begin = m_lastFrame;
    m_outage->cause = online ? Outage::Cause::Silent : Outage::Cause::Gone;
    m_vainRestarts = 0;
    m_progress.note(QStringLiteral("no frames since %1 s: camera %2")
                        .arg(m_lastFrame, 0, 'f', 2)
                        .arg(textOf(m_outage->cause)));
}

void StreamKeeper::endOutage(double second)
{
    m_outage->seconds = second - m_outage->begin;
    m_progress.note(QStringLiteral("outage %1").arg(m_outage->text()));
    m_outages.push_back(*m_outage);
    m_outage.reset();
}
