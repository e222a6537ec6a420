#include "zrnview/device/camera_device.h"

namespace zrnview
{
namespace
{

constexpr qint64 stuckMilliseconds = 4000;

} // namespace

CameraDevice::CameraDevice(const std::shared_ptr<zrn::Driver>& driver, const zrn::BusCamera& camera,
                           QObject* parent)
    : QObject(parent)
    , m_serial(QString::fromStdString(camera.serial))
    , m_worker(new CameraWorker(m_station))
{
    m_thread.setObjectName(m_serial);
    m_worker->moveToThread(&m_thread);
    connect(&m_thread, &QThread::finished, m_worker, &QObject::deleteLater);
    connect(m_worker, &CameraWorker::connected, this, &CameraDevice::noteFacts);
    connect(m_worker, &CameraWorker::healthChanged, this, &CameraDevice::noteHealth);
    connect(m_worker, &CameraWorker::settingsRead, this, &CameraDevice::noteReadings);
    connect(m_worker, &CameraWorker::propertiesRead, this, &CameraDevice::propertiesRead);
    connect(m_worker, &CameraWorker::answered, this, &CameraDevice::answered);
    connect(m_worker, &CameraWorker::recordingRefused, this, &CameraDevice::recordingRefused);
    connect(m_worker, &CameraWorker::settingsSaved, this, &CameraDevice::settingsSaved);
    connect(m_worker, &CameraWorker::settingsLoaded, this, &CameraDevice::settingsLoaded);
    connect(m_worker, &CameraWorker::settingsFileFailed, this, &CameraDevice::settingsFileFailed);
    connect(m_worker, &CameraWorker::silenceExplained, this, &CameraDevice::silenceExplained);
    connect(m_worker, &CameraWorker::recordingStarted, this,
            [this](const std::shared_ptr<zrn::CameraRecorder>& recorder) {
                m_recorder = recorder;
                emit recordingChanged();
            });
    m_lastSign.start();
    m_thread.start();
    ask(&CameraWorker::connectTo, driver, camera);
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
    return m_recorder && !m_recorder->waitUntilDone(std::chrono::milliseconds(0));
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
    QJsonObject settings;
    for (const auto& [setting, reading] : m_readings) {
        if (reading.readCode == ErrorCode::Success) {
            settings[QString::fromUtf8(infoOf(setting).label)] = reading.value;
        }
    }
    return {{QStringLiteral("serial"), m_serial}, {QStringLiteral("settings"), settings}};
}

void CameraDevice::take()
{
    if (m_health.state == CameraState::Absent) {
        noteHealth(CameraHealth());
    }
    ask(&CameraWorker::take);
}

bool CameraDevice::shutDown(int milliseconds)
{
    if (m_recorder) {
        m_recorder->stop();
    }
    m_thread.quit();
    const bool ended = m_thread.wait(static_cast<unsigned long>(milliseconds));
    if (m_recorder) {
        m_recorder->finish(); // also where a call hangs, and nobody tidies up
    }
    return ended;
}

void CameraDevice::noteFacts(const CameraFacts& facts)
{
    m_facts = facts;
    m_expectsSigns = true;
    emit factsChanged();
}

void CameraDevice::noteHealth(const CameraHealth& health)
{
    m_lastSign.start();
    m_expectsSigns = m_expectsSigns && health.state != CameraState::Absent;
    m_health = health;
    emit healthChanged();
}

void CameraDevice::noteReadings(const SettingReadings& readings)
{
    m_lastSign.start();
    for (const SettingReading& reading : readings) {
        m_readings[reading.setting] = reading;
    }
    emit settingsRead(readings);
    for (const SettingReading& reading : readings) {
        const auto wish = m_wishes.find(reading.setting);
        if (reading.written && reading.writeCode == ErrorCode::Success && wish != m_wishes.end() &&
            wish->second == reading.wanted) {
            emit settingChosen(reading.setting, reading.wanted);
        }
    }
}

} // namespace zrnview
