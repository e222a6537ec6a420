#include "zrnview/device/camera_worker.h"

#include "zrnview/device/setting_access.h"
#include "zrnview/device/silence_findings.h"

#include <QFile>
#include <QJsonDocument>

namespace zrnview
{
namespace
{

using namespace std::chrono_literals;
using CameraSpace::TriggerMode;

constexpr auto watchPeriod = 250ms;
constexpr auto propertyPeriod = 1s;
/// Without a frame for this long, or twice the exposure if that is longer, a stream is silent.
constexpr double patienceSeconds = 1.5;
/// Unanswered probes in a row, while frames arrive, that make a camera deaf. The first may be that
/// of a camera which was just unplugged and whose last frames came after the probe before.
constexpr int deafProbes = 2;

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
    qRegisterMetaType<std::shared_ptr<zrn::Recorder>>();
    m_watchTimer.setInterval(watchPeriod);
    m_propertyTimer.setInterval(propertyPeriod);
    connect(&m_watchTimer, &QTimer::timeout, this, &CameraWorker::watch);
    connect(&m_propertyTimer, &QTimer::timeout, this, [this] {
        if (m_camera) {
            emit propertiesRead(readAllProperties(*m_camera));
        }
    });
}

CameraWorker::~CameraWorker()
{
    release();
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

void CameraWorker::adopt(const ConnectedCameraPointer& connected)
{
    m_camera = std::move(connected->camera);
    m_port = connected->port;
    m_health = CameraHealth();
    m_health.code = connected->code;
    if (!m_camera) {
        m_health.state = CameraState::Unusable;
        emit healthChanged(m_health);
        return;
    }
    m_facts = readFacts(*m_camera);
    emit adopted(m_facts);
    emit settingsRead(readAllSettings(*m_camera));
    m_watchTimer.start();
    watch();
}

void CameraWorker::release()
{
    m_watchTimer.stop();
    if (m_camera) {
        stopStream();
        m_camera.reset();
    }
    m_health = CameraHealth();
    emit healthChanged(m_health);
    emit released();
}

void CameraWorker::startStream()
{
    if (!m_camera || m_stream) {
        return;
    }
    try {
        zrn::StreamOptions options;
        options.onFrame = [this](const zrn::Frame& frame) { accept(frame); };
        m_stream = std::make_unique<zrn::Stream>(m_camera, std::move(options));
    } catch (const zrn::Error& error) {
        emit answered(tr("starting the stream"), error.code());
        return;
    }
    emit answered(tr("starting the stream"), ErrorCode::Success);
    m_framesAtLastWatch = 0;
    emit settingsRead({readSetting(*m_camera, Setting::CacheFrames)});
    watch();
}

void CameraWorker::stopStream()
{
    if (!m_stream) {
        return;
    }
    endRecording();
    m_stream.reset();
    emit answered(tr("stopping the stream"), ErrorCode::Success);
    emit settingsRead({readSetting(*m_camera, Setting::CacheFrames)});
    watch();
}

void CameraWorker::resetCamera()
{
    if (!m_camera) {
        return;
    }
    emit answered(tr("resetting the camera"), resetState(*m_camera));
    emit settingsRead(readAllSettings(*m_camera));
}

void CameraWorker::discardFrames()
{
    if (m_camera) {
        emit answered(tr("discarding cached frames"), discardCached(*m_camera));
    }
}

void CameraWorker::writeProperty(const QByteArray& key, const zrn::Value& value)
{
    if (!m_camera) {
        return;
    }
    const ErrorCode code = zrnview::writeProperty(*m_camera, key.constData(), value);
    emit answered(tr("writing %1 to %2")
                      .arg(QString::fromStdString(zrn::toText(value)), QString::fromLatin1(key)),
                  code);
    emit settingsRead(readAllSettings(*m_camera));
    emit propertiesRead(readAllProperties(*m_camera));
}

void CameraWorker::watchProperties(bool wanted)
{
    if (!wanted) {
        m_propertyTimer.stop();
        return;
    }
    m_propertyTimer.start();
    if (m_camera) {
        emit propertiesRead(readAllProperties(*m_camera));
    }
}

void CameraWorker::startRecording(const QString& path, const QJsonObject& metadata)
{
    if (!m_stream) {
        emit recordingRefused(tr("start the stream first"));
        return;
    }
    endRecording();
    try {
        m_recorder = std::make_shared<zrn::Recorder>(
            QFile::encodeName(path).toStdString(),
            QJsonDocument(metadata).toJson(QJsonDocument::Compact).toStdString());
    } catch (const zrn::Error& error) {
        emit recordingRefused(QString::fromUtf8(error.what()));
        return;
    }
    // Newest first leaves frames out, which is right for looking and wrong for recording.
    m_orderBeforeRecording = readSetting(*m_camera, Setting::TriggerOrder).value;
    emit settingsRead(writeAndReadBack(*m_camera, Setting::TriggerOrder,
                                       static_cast<qint64>(TriggerMode::Oldest)));
    setSink(m_recorder);
    emit recordingStarted(m_recorder);
}

void CameraWorker::stopRecording()
{
    endRecording();
}

void CameraWorker::endRecording()
{
    if (!m_recorder) {
        return;
    }
    setSink(nullptr);
    m_recorder->stop();
    m_recorder.reset();
    emit settingsRead(writeAndReadBack(*m_camera, Setting::TriggerOrder, m_orderBeforeRecording));
}

void CameraWorker::carryOutRequests()
{
    std::map<Setting, qint64> requests;
    {
        const std::lock_guard lock(m_requestsMutex);
        requests.swap(m_requests);
    }
    for (const auto& [setting, value] : requests) {
        write(setting, value);
    }
}

void CameraWorker::write(Setting setting, qint64 value)
{
    if (!m_camera) {
        return;
    }
    emit settingsRead(writeAndReadBack(*m_camera, setting, value));
}

void CameraWorker::watch()
{
    if (!m_camera) {
        return;
    }
    const bool answers = probe();
    m_unansweredProbes = answers ? 0 : m_unansweredProbes + 1;
    if (m_stream) {
        m_health.counters = m_stream->counters();
    }
    const CameraState before = m_health.state;
    m_health.state = stateNow(answers);
    m_health.answersControls =
        m_health.state != CameraState::Lost && m_unansweredProbes < deafProbes;
    m_health.code = m_health.counters.lastFailure;
    m_framesAtLastWatch = m_health.counters.frames;
    const std::chrono::duration<double> quiet = Clock::now() - m_health.counters.lastFrame;
    m_health.silentSeconds = m_health.state == CameraState::Silent ? quiet.count() : 0;
    if (m_health.state == CameraState::Lost) {
        endRecording();
    } else if (m_recorder && m_recorder->progress().finished) {
        endRecording();
    }
    if (m_health.state == CameraState::Silent && before != CameraState::Silent) {
        emit silenceExplained(silenceFindings(m_health, m_port, zrn::Bus().camerasAndHolders(),
                                              usbfsMegabytes(QString())));
    }
    emit healthChanged(m_health);
}

bool CameraWorker::probe()
{
    const zrn::CameraStatus status = m_camera->status();
    m_health.driverRate = status.frameRate;
    return status.isOnline;
}

void CameraWorker::accept(const zrn::Frame& frame)
{
    LiveFrame live;
    live.frame = frame;
    live.seconds = secondsSinceStart(frame.arrival);
    live.handedOver = frame.arrival;
    live.waitMilliseconds = std::chrono::duration<double, std::milli>(frame.wait).count();
    m_station.deliver(std::move(live));
    std::unique_lock lock(m_sinkMutex);
    const std::shared_ptr<zrn::Recorder> recorder = m_sink;
    lock.unlock();
    if (recorder) {
        recorder->add(frame);
    }
}

void CameraWorker::setSink(std::shared_ptr<zrn::Recorder> recorder)
{
    const std::lock_guard lock(m_sinkMutex);
    m_sink = std::move(recorder);
}

CameraState CameraWorker::stateNow(bool answers) const
{
    // A camera whose frames still arrive is there, even if a control request went wrong.
    const zrn::StreamCounters& counters = m_health.counters;
    const bool framesArrive = m_stream && counters.frames > m_framesAtLastWatch;
    if (!answers && !framesArrive) {
        return CameraState::Lost;
    }
    if (!m_stream) {
        return CameraState::Idle;
    }
    const std::chrono::duration<double> exposure = m_camera->knownExposure();
    const double patience = std::max(patienceSeconds, 2 * exposure.count());
    const std::chrono::duration<double> quiet = Clock::now() - counters.lastFrame;
    return quiet.count() > patience ? CameraState::Silent : CameraState::Streaming;
}

} // namespace zrnview
