#include "zrnview/device/camera_device.h"

#include <QDateTime>

#include <array>

namespace zrnview
{
namespace
{

constexpr qint64 stuckMilliseconds = 4000;

/// The order in which chosen settings are written again: colour gains rewrite all carriers with
/// bytes, so that the settings that share a carrier with them, and may be wider, come later.
constexpr std::array restoreOrder = {
    Setting::TriggerOrder, Setting::CacheFrames, Setting::GrabTimeout, Setting::ExposureCheck,
    Setting::GainCheck,    Setting::RGain,       Setting::GrGain,      Setting::GbGain,
    Setting::BGain,        Setting::Gamma,       Setting::Sharpness,   Setting::Hue,
    Setting::Exposure,     Setting::Gain,
};

} // namespace

CameraDevice::CameraDevice(const QString& serial, QObject* parent)
    : QObject(parent)
    , m_serial(serial)
    , m_worker(new CameraWorker(m_station))
{
    m_thread.setObjectName(serial);
    m_worker->moveToThread(&m_thread);
    connect(&m_thread, &QThread::finished, m_worker, &QObject::deleteLater);
    connect(m_worker, &CameraWorker::adopted, this, &CameraDevice::noteFacts);
    connect(m_worker, &CameraWorker::healthChanged, this, &CameraDevice::noteHealth);
    connect(m_worker, &CameraWorker::settingsRead, this, &CameraDevice::noteReadings);
    connect(m_worker, &CameraWorker::released, this, [this] {
        m_expectsSigns = false;
        m_isReleasing = false;
        m_place.clear();
        emit released();
    });
    connect(m_worker, &CameraWorker::propertiesRead, this, &CameraDevice::propertiesRead);
    connect(m_worker, &CameraWorker::answered, this, &CameraDevice::answered);
    connect(m_worker, &CameraWorker::recordingRefused, this, &CameraDevice::recordingRefused);
    connect(m_worker, &CameraWorker::silenceExplained, this, &CameraDevice::silenceExplained);
    connect(m_worker, &CameraWorker::recordingStarted, this,
            [this](const std::shared_ptr<zrn::Recorder>& recorder) {
                m_recorder = recorder;
                emit recordingChanged();
            });
    m_lastSign.start();
    m_thread.start();
}

CameraDevice::~CameraDevice()
{
    m_thread.quit();
    m_thread.wait();
}

const SettingReading* CameraDevice::reading(Setting setting) const
{
    const auto found = m_readings.find(setting);
    return found == m_readings.end() ? nullptr : &found->second;
}

bool CameraDevice::isRecording() const
{
    return m_recorder && !m_recorder->progress().finished;
}

bool CameraDevice::isConnected() const
{
    return m_health.state == CameraState::Idle || isStreaming();
}

bool CameraDevice::isStreaming() const
{
    return m_health.state == CameraState::Streaming || m_health.state == CameraState::Silent;
}

bool CameraDevice::isStuck() const
{
    return m_expectsSigns && m_lastSign.elapsed() > stuckMilliseconds;
}

QJsonObject CameraDevice::metadata() const
{
    QJsonObject values;
    for (const auto& [setting, reading] : m_readings) {
        if (reading.readCode == ErrorCode::Success) {
            values[QString::fromUtf8(infoOf(setting).label)] = static_cast<double>(reading.value);
        }
    }
    return {{QStringLiteral("serial"), m_serial},
            {QStringLiteral("time"), QDateTime::currentDateTime().toString(Qt::ISODateWithMs)},
            {QStringLiteral("width"), static_cast<int>(m_facts.width)},
            {QStringLiteral("height"), static_cast<int>(m_facts.height)},
            {QStringLiteral("sensors"), m_facts.sensorCount},
            {QStringLiteral("settings"), values}};
}

void CameraDevice::adopt(const ConnectedCameraPointer& connected, const QString& place)
{
    m_place = place;
    CameraHealth connecting;
    connecting.state = CameraState::Connecting;
    noteHealth(connecting);
    QMetaObject::invokeMethod(m_worker, [this, connected] { m_worker->adopt(connected); });
}

void CameraDevice::release()
{
    if (m_isReleasing) {
        return;
    }
    m_isReleasing = true;
    QMetaObject::invokeMethod(m_worker, &CameraWorker::release);
}

void CameraDevice::startStream()
{
    m_wantsStream = true;
    QMetaObject::invokeMethod(m_worker, &CameraWorker::startStream);
}

void CameraDevice::stopStream()
{
    m_wantsStream = false;
    QMetaObject::invokeMethod(m_worker, &CameraWorker::stopStream);
}

void CameraDevice::set(Setting setting, qint64 value)
{
    m_worker->request(setting, value);
}

void CameraDevice::resetCamera()
{
    m_chosen.clear();
    QMetaObject::invokeMethod(m_worker, &CameraWorker::resetCamera);
}

void CameraDevice::discardFrames()
{
    QMetaObject::invokeMethod(m_worker, &CameraWorker::discardFrames);
}

void CameraDevice::writeProperty(const QByteArray& key, const zrn::Value& value)
{
    QMetaObject::invokeMethod(m_worker,
                              [this, key, value] { m_worker->writeProperty(key, value); });
}

void CameraDevice::watchProperties(bool wanted)
{
    QMetaObject::invokeMethod(m_worker, [this, wanted] { m_worker->watchProperties(wanted); });
}

void CameraDevice::startRecording(const QString& path)
{
    QMetaObject::invokeMethod(
        m_worker, [this, path, facts = metadata()] { m_worker->startRecording(path, facts); });
}

void CameraDevice::stopRecording()
{
    QMetaObject::invokeMethod(m_worker, &CameraWorker::stopRecording);
}

bool CameraDevice::shutDown(int milliseconds)
{
    if (m_recorder) {
        m_recorder->stop();
    }
    m_thread.quit();
    return m_thread.wait(static_cast<unsigned long>(milliseconds));
}

void CameraDevice::noteFacts(const CameraFacts& facts)
{
    m_facts = facts;
    m_expectsSigns = true;
    emit factsChanged();
    restoreSettings();
    if (m_wantsStream) {
        startStream();
    }
}

void CameraDevice::noteHealth(const CameraHealth& health)
{
    m_lastSign.start();
    const bool isClosedAfterLoss =
        m_isWanted && m_health.state == CameraState::Lost && health.state == CameraState::Absent;
    if (!isClosedAfterLoss) {
        m_health = health;
    }
    emit healthChanged();
}

void CameraDevice::noteReadings(const SettingReadings& readings)
{
    m_lastSign.start();
    for (const SettingReading& reading : readings) {
        m_readings[reading.setting] = reading;
        if (reading.written && reading.writeCode == ErrorCode::Success) {
            m_chosen[reading.setting] = reading.wanted;
            for (const Setting overwritten : effectsOf(reading.setting).changed) {
                m_chosen.erase(overwritten);
            }
        }
    }
    emit settingsRead(readings);
}

void CameraDevice::restoreSettings()
{
    QMetaObject::invokeMethod(m_worker, [this, chosen = m_chosen] {
        for (const Setting setting : restoreOrder) {
            const auto found = chosen.find(setting);
            if (found != chosen.end()) {
                m_worker->write(setting, found->second);
            }
        }
    });
}

} // namespace zrnview
