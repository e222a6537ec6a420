#include "zrnview/device/camera_worker.h"

#include "common/property_keys.h"
#include "zrnview/device/setting_access.h"
#include "zrnview/device/silence_findings.h"

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

} // namespace

CameraWorker::CameraWorker(FrameStation& station)
    : m_station(station)
    , m_loop(m_station)
    , m_watchTimer(this)
    , m_propertyTimer(this)
{
    qRegisterMetaType<std::shared_ptr<zrnrecording::Recorder>>();
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
    m_facts = readFacts(*m_camera, connected->serial);
    emit adopted(m_facts);
    const SettingReadings readings = readAllSettings(*m_camera);
    m_exposureSeconds = static_cast<double>(readings.front().value) * 1e-6;
    emit settingsRead(readings);
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
    if (!m_camera || m_isStreaming) {
        return;
    }
    const ErrorCode code = (*m_camera)->startStream(0);
    emit answered(tr("starting the stream"), code);
    if (code != ErrorCode::Success) {
        return;
    }
    m_isStreaming = true;
    m_framesAtLastWatch = 0;
    m_loop.start(*m_camera, m_facts.sensorCount);
    emit settingsRead({readSetting(*m_camera, Setting::CacheFrames)});
    watch();
}

void CameraWorker::stopStream()
{
    if (!m_isStreaming) {
        return;
    }
    endRecording();
    const ErrorCode code = (*m_camera)->stopStream(0);
    m_loop.stop();
    m_isStreaming = false;
    emit answered(tr("stopping the stream"), code);
    emit settingsRead({readSetting(*m_camera, Setting::CacheFrames)});
    watch();
}

void CameraWorker::resetCamera()
{
    if (!m_camera) {
        return;
    }
    QMap<QString, QVariant> nothing;
    const ErrorCode code =
        (*m_camera)->executeCommand(QString::fromLatin1(zrnhost::keys::clearState), nothing);
    emit answered(tr("resetting the camera"), code);
    emit settingsRead(readAllSettings(*m_camera));
}

void CameraWorker::discardFrames()
{
    if (m_camera) {
        emit answered(tr("discarding cached frames"), (*m_camera)->discardFrames(0));
    }
}

void CameraWorker::writeProperty(const QByteArray& key, const QVariant& value)
{
    if (!m_camera) {
        return;
    }
    const ErrorCode code = m_camera->writeProperty(key.constData(), value);
    emit answered(tr("writing %1 to %2").arg(value.toString(), QString::fromLatin1(key)), code);
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
    if (!m_isStreaming) {
        emit recordingRefused(tr("start the stream first"));
        return;
    }
    endRecording();
    try {
        m_recorder = std::make_shared<zrnrecording::Recorder>(path, metadata);
    } catch (const zrnrecording::RecordingError& error) {
        emit recordingRefused(QString::fromUtf8(error.what()));
        return;
    }
    // Newest first leaves frames out, which is right for looking and wrong for recording.
    m_orderBeforeRecording = readSetting(*m_camera, Setting::TriggerOrder).value;
    emit settingsRead(writeAndReadBack(*m_camera, Setting::TriggerOrder,
                                       static_cast<qint64>(TriggerMode::Oldest)));
    m_loop.setRecorder(m_recorder);
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
    m_loop.setRecorder(nullptr);
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
    const SettingReadings readings = writeAndReadBack(*m_camera, setting, value);
    if (setting == Setting::Exposure && readings.front().readCode == ErrorCode::Success) {
        m_exposureSeconds = static_cast<double>(readings.front().value) * 1e-6;
    }
    emit settingsRead(readings);
}

void CameraWorker::watch()
{
    if (!m_camera) {
        return;
    }
    const bool answers = probe();
    m_unansweredProbes = answers ? 0 : m_unansweredProbes + 1;
    m_health.counters = m_loop.counters();
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
    QVariant status;
    const ErrorCode code = m_camera->readProperty(zrnhost::keys::heartBeat, status);
    const QVariantMap record = status.toMap();
    m_health.driverRate = record.value(QLatin1String(zrnhost::keys::statusFrameRate)).toDouble();
    return code == ErrorCode::Success &&
           record.value(QLatin1String(zrnhost::keys::online)).toBool();
}

CameraState CameraWorker::stateNow(bool answers) const
{
    // A camera whose frames still arrive is there, even if a control request went wrong.
    const GrabCounters& counters = m_health.counters;
    const bool framesArrive = m_isStreaming && counters.frames > m_framesAtLastWatch;
    if (!answers && !framesArrive) {
        return CameraState::Lost;
    }
    if (!m_isStreaming) {
        return CameraState::Idle;
    }
    const double patience = std::max(patienceSeconds, 2 * m_exposureSeconds);
    const std::chrono::duration<double> quiet = Clock::now() - counters.lastFrame;
    return quiet.count() > patience ? CameraState::Silent : CameraState::Streaming;
}

} // namespace zrnview
