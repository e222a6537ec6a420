#include "zrnview/device/camera_worker.h"

#include "client/findings.h"
#include "client/silence.h"
#include "common/camera_settings.h"
#include "common/file_writer.h"
#include "zrnview/device/setting_access.h"

#include <QFile>

#include <algorithm>
#include <utility>

namespace zrnview
{
namespace
{

using namespace std::chrono_literals;
using CameraSpace::TriggerMode;

constexpr auto watchPeriod = 250ms;
constexpr auto propertyPeriod = 1s;
/// Unanswered probes in a row that make a camera deaf, if a frame has come since the first of them;
/// otherwise it may just have been unplugged.
constexpr int deafProbes = 2;
/// Slower cameras there are none.
constexpr auto slowestPeriod = 2s;

double secondsSinceStart(Clock::time_point time)
{
    static const Clock::time_point start = Clock::now();
    return std::chrono::duration<double>(time - start).count();
}

} // namespace

CameraWorker::CameraWorker(FrameStation& station)
    : m_station(station)
    , m_watchTimer(this)
    , m_propertyTimer(this)
{
    qRegisterMetaType<std::shared_ptr<zrn::CameraRecorder>>();
    m_watchTimer.setInterval(watchPeriod);
    m_propertyTimer.setInterval(propertyPeriod);
    connect(&m_watchTimer, &QTimer::timeout, this, &CameraWorker::watch);
    connect(&m_propertyTimer, &QTimer::timeout, this, [this] {
        if (isConnected()) {
            emit propertiesRead(readAllProperties(*m_camera));
        }
    });
}

CameraWorker::~CameraWorker()
{
    giveBack();
}

bool CameraWorker::isConnected() const
{
    return m_watchTimer.isActive() && m_health.state != CameraState::Lost;
}

void CameraWorker::request(Setting setting, qint64 value)
{
    const std::lock_guard lock(m_requestsMutex);
    const bool isFirst = m_requests.empty();
    m_requests[setting] = value;
    if (isFirst) {
        QMetaObject::invokeMethod(this, &CameraWorker::carryOutRequests, Qt::QueuedConnection);
    }
}

void CameraWorker::connectTo(const std::shared_ptr<zrn::Driver>& driver,
                             const zrn::BusCamera& camera)
{
    m_driver = driver;
    m_choice = {camera.serial, camera.port, -1};
    open([&] { m_camera = zrn::Camera::connect(driver, camera); });
}

void CameraWorker::take()
{
    if (!m_watchTimer.isActive()) {
        find();
    }
}

void CameraWorker::giveBack()
{
    m_watchTimer.stop();
    stopStream();
    if (m_camera) {
        m_camera->close();
    }
    m_health = CameraHealth();
    m_health.state = CameraState::Absent;
    emit healthChanged(m_health);
}

/// Looks for the camera, once.
void CameraWorker::find()
{
    open([this] {
        if (m_camera) {
            m_camera->reopen();
        } else {
            m_camera = zrn::Camera::open(m_driver, m_choice, {0ms, {}});
        }
    });
}

/// Tells how it went to get the camera; from then on it is watched, or looked for.
void CameraWorker::open(const std::function<void()>& operation)
{
    std::optional<zrn::Error> failure;
    try {
        operation();
    } catch (const zrn::Error& error) {
        failure = error;
    }
    if (m_camera) {
        m_watchTimer.start();
    }
    m_health = CameraHealth();
    if (failure) {
        m_health.state = m_camera ? CameraState::Lost : CameraState::Unusable;
        m_health.code = failure->code();
        m_health.refusal =
            zrn::isAbsence(*failure) ? QString() : QString::fromUtf8(failure->what());
        emit healthChanged(m_health);
        return;
    }
    welcome();
    if (m_wantsStream) {
        startStream();
    }
    watch();
}

/// Tells what a camera is that is there, or there again.
void CameraWorker::welcome()
{
    emit connected(readFacts(*m_camera));
    emit settingsRead(readAllSettings(*m_camera));
}

void CameraWorker::note(const zrn::StreamEvent& event)
{
    if (!m_stream) {
        return; // it was stopped while the event was on its way
    }
    using Kind = zrn::StreamEvent::Kind;
    m_health.refusal = QString::fromStdString(event.reason);
    if (event.kind == Kind::Back) {
        welcome();
        watch();
    } else if (event.kind == Kind::Restarted) {
        emit answered(tr("restarting the silent stream"), ErrorCode::Success);
    }
}

/// Does what is done at once, and tells how it went.
void CameraWorker::carryOut(const QString& name, const std::function<void()>& operation)
{
    if (isConnected()) {
        emit answered(name, codeOf(operation));
    }
}

void CameraWorker::startStream()
{
    m_wantsStream = true;
    if (m_stream || !m_camera || m_health.state == CameraState::Lost ||
        m_health.state == CameraState::Absent) {
        return;
    }
    m_health.counters = {};
    const ErrorCode code = codeOf([this] {
        zrn::StreamOptions options;
        options.keepAlive = true;
        options.slowestPeriod = slowestPeriod;
        options.onFrame = [this, isFirst = true](const zrn::Frame& frame) mutable {
            accept(frame, std::exchange(isFirst, false));
        };
        options.onEvent = [this](const zrn::StreamEvent& event) {
            if (const Sink recording = sink(); recording.recorder) {
                recording.recorder->note(event);
            }
            QMetaObject::invokeMethod(this, [this, event] { note(event); });
        };
        m_stream = std::make_unique<zrn::Stream>(m_camera, std::move(options));
    });
    emit answered(tr("starting the stream"), code);
    emit settingsRead({readSetting(*m_camera, Setting::CacheFrames)});
    watch();
}

void CameraWorker::stopStream()
{
    m_wantsStream = false;
    if (!m_stream) {
        return;
    }
    stopRecording();
    m_stream.reset();
    m_health.counters.outage.reset();
    emit answered(tr("stopping the stream"), ErrorCode::Success);
    emit settingsRead({readSetting(*m_camera, Setting::CacheFrames)});
    watch();
}

void CameraWorker::resetCamera()
{
    carryOut(tr("resetting the camera"), [this] { m_camera->run(zrn::keys::clearState); });
    if (isConnected()) {
        emit settingsRead(readAllSettings(*m_camera));
    }
}

void CameraWorker::discardFrames()
{
    carryOut(tr("discarding cached frames"), [this] { m_camera->discardFrames(); });
}

void CameraWorker::writeProperty(const QByteArray& key, const zrn::Value& value)
{
    carryOut(tr("writing %1 to %2")
                 .arg(QString::fromStdString(zrn::toText(value)), QString::fromLatin1(key)),
             [&] { m_camera->setProperty(key.constData(), value); });
    if (isConnected()) {
        emit settingsRead(readAllSettings(*m_camera));
        emit propertiesRead(readAllProperties(*m_camera));
    }
}

void CameraWorker::watchProperties(bool wanted)
{
    if (!wanted) {
        m_propertyTimer.stop();
        return;
    }
    m_propertyTimer.start();
    if (isConnected()) {
        emit propertiesRead(readAllProperties(*m_camera));
    }
}

void CameraWorker::startRecording(const std::shared_ptr<zrn::RecordingSession>& session)
{
    if (!m_stream) {
        emit recordingRefused(tr("start the stream first"));
        return;
    }
    stopRecording();
    try {
        m_recorder = std::make_shared<zrn::CameraRecorder>(
            session, m_camera->facts().serial,
            [camera = m_camera] { return zrn::metadataOf(*camera); });
    } catch (const zrn::Error& error) {
        emit recordingRefused(QString::fromUtf8(error.what()));
        return;
    }
    // Newest first leaves frames out, which is right for looking and wrong for recording.
    m_orderBeforeRecording = readSetting(*m_camera, Setting::TriggerOrder).value;
    emit settingsRead(writeAndReadBack(*m_camera, Setting::TriggerOrder,
                                       static_cast<qint64>(TriggerMode::Oldest)));
    m_recorder->watch(*m_camera);
    setSink({m_recorder, m_stream.get()});
    emit recordingStarted(m_recorder);
}

void CameraWorker::stopRecording()
{
    if (!m_recorder) {
        return;
    }
    setSink({});
    m_recorder->stop();
    m_recorder.reset();
    emit settingsRead(writeAndReadBack(*m_camera, Setting::TriggerOrder, m_orderBeforeRecording));
}

void CameraWorker::saveSettings(const QString& path)
{
    if (!isConnected()) {
        return;
    }
    try {
        const QString failure =
            zrnhost::writeFile(path, zrnhost::toJson(zrnhost::settingsOf(*m_camera)));
        failure.isEmpty() ? emit settingsSaved(path) : emit settingsFileFailed(failure);
    } catch (const zrn::Error& error) {
        emit settingsFileFailed(QString::fromUtf8(error.what()));
    }
}

void CameraWorker::loadSettings(const QString& path)
{
    if (!isConnected()) {
        return;
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        emit settingsFileFailed(QStringLiteral("%1: %2").arg(path, file.errorString()));
        return;
    }
    try {
        zrnhost::applySettings(zrnhost::settingsFromJson(file.readAll()), *m_camera);
        emit settingsLoaded(path);
    } catch (const std::exception& error) { // the camera's or the file's
        emit settingsFileFailed(
            QStringLiteral("%1: %2").arg(path, QString::fromUtf8(error.what())));
    }
    emit settingsRead(readAllSettings(*m_camera));
}

void CameraWorker::carryOutRequests()
{
    std::map<Setting, qint64> requests;
    {
        const std::lock_guard lock(m_requestsMutex);
        requests.swap(m_requests);
    }
    for (const auto& [setting, value] : requests) {
        if (isConnected()) {
            emit settingsRead(writeAndReadBack(*m_camera, setting, value));
        }
    }
}

void CameraWorker::watch()
{
    if (!m_watchTimer.isActive()) {
        return; // given back
    }
    if (m_health.state == CameraState::Lost && !m_stream) {
        find();
        return;
    }
    const zrn::CameraStatus status = m_camera->status();
    const CameraState before = m_health.state;
    if (m_stream) {
        m_health.counters = m_stream->counters();
    }
    m_health.driverRate = status.frameRate;
    m_health.state = stateNow(status.isOnline);
    judgeControls(status.isOnline);
    m_health.code = m_health.counters.lastFailure;
    if (m_recorder && m_recorder->waitUntilDone(0ms)) {
        stopRecording();
    }
    if (m_health.state == CameraState::Silent && before != CameraState::Silent) {
        QStringList sentences;
        for (const std::string& sentence :
             zrn::explainSilence(m_health.counters, m_health.answersControls, m_camera->port(),
                                 m_driver->bus().camerasAndHolders(), zrn::transferMemoryLimit())) {
            sentences += QString::fromStdString(sentence);
        }
        emit silenceExplained(sentences);
    }
    emit healthChanged(m_health);
}

void CameraWorker::accept(const zrn::Frame& frame, bool isFirst)
{
    LiveFrame live;
    live.frame = frame;
    live.isFirst = isFirst;
    live.seconds = secondsSinceStart(frame.arrival);
    live.handedOver = frame.arrival;
    live.waitMilliseconds = std::chrono::duration<double, std::milli>(frame.wait).count();
    m_station.deliver(std::move(live));
    if (const Sink recording = sink(); recording.recorder) {
        recording.recorder->add(frame, recording.stream->counters().lost);
    }
}

void CameraWorker::setSink(Sink sink)
{
    const std::lock_guard lock(m_sinkMutex);
    m_sink = std::move(sink);
}

CameraWorker::Sink CameraWorker::sink()
{
    const std::lock_guard lock(m_sinkMutex);
    return m_sink;
}

/// Whether a frame should have come since the last one, were the camera still there.
bool CameraWorker::isFrameOverdue() const
{
    const zrn::StreamCounters& counters = m_health.counters;
    const std::chrono::nanoseconds period = counters.period > 0ns ? counters.period : slowestPeriod;
    return Clock::now() - counters.lastFrame >
           std::max<std::chrono::nanoseconds>(watchPeriod, 2 * period);
}

void CameraWorker::judgeControls(bool isAnswered)
{
    m_unansweredProbes = isAnswered ? 0 : m_unansweredProbes + 1;
    if (m_unansweredProbes <= 1) {
        m_framesWhenHeard = m_health.counters.frames;
    }
    const bool isDeaf =
        m_unansweredProbes >= deafProbes && m_health.counters.frames > m_framesWhenHeard;
    const bool answers = isAnswered || (m_health.answersControls && !isDeaf);
    m_health.answersControls = answers && m_health.state != CameraState::Lost;
}

CameraState CameraWorker::stateNow(bool answers) const
{
    const zrn::StreamCounters& counters = m_health.counters;
    if (counters.outage) {
        return *counters.outage == zrn::Outage::Cause::Gone ? CameraState::Lost
                                                            : CameraState::Silent;
    }
    // A camera whose frames still arrive is there, even if a control request went wrong.
    if (!answers && !(m_stream && !isFrameOverdue())) {
        return CameraState::Lost;
    }
    return !m_stream                ? CameraState::Idle
           : counters.silence > 0ns ? CameraState::Silent
                                    : CameraState::Streaming;
}

} // namespace zrnview
