#include "zrnview/widgets/camera_events.h"

#include "zrnview/widgets/explanation.h"
#include "zrnview/widgets/record_strip.h"

#include <QFile>
#include <QLocale>

namespace zrnview
{
namespace
{

using namespace std::chrono_literals;
using Tone = EventLog::Tone;

constexpr auto settlingTime = 700ms;
constexpr auto recordingPeriod = 250ms;

QString labelOf(Setting setting)
{
    return QString::fromUtf8(infoOf(setting).label);
}

QString valueText(Setting setting, qint64 value)
{
    const SettingInfo& info = infoOf(setting);
    if (info.isFlag) {
        return value != 0 ? CameraEvents::tr("on") : CameraEvents::tr("off");
    }
    if (setting == Setting::TriggerOrder) {
        return static_cast<CameraSpace::TriggerMode>(value) == CameraSpace::TriggerMode::Newest
                   ? CameraEvents::tr("newest first")
                   : CameraEvents::tr("oldest first");
    }
    const QString number = QLocale().toString(value);
    return *info.unit ? QStringLiteral("%1 %2").arg(number, QString::fromUtf8(info.unit)) : number;
}

} // namespace

CameraEvents::CameraEvents(CameraDevice& device, Note note, QObject* parent)
    : QObject(parent)
    , m_device(device)
    , m_note(std::move(note))
    , m_settingsTimer(this)
    , m_recordingTimer(this)
{
    m_settingsTimer.setSingleShot(true);
    m_settingsTimer.setInterval(settlingTime);
    m_recordingTimer.setInterval(recordingPeriod);
    connect(&m_settingsTimer, &QTimer::timeout, this, &CameraEvents::tellSettings);
    connect(&m_recordingTimer, &QTimer::timeout, this, &CameraEvents::tellRecording);
    connect(&m_device, &CameraDevice::answered, this, &CameraEvents::tellAnswer);
    connect(&m_device, &CameraDevice::settingsRead, this, &CameraEvents::noteReadings);
    connect(&m_device, &CameraDevice::healthChanged, this, &CameraEvents::tellHealth);
    connect(&m_device, &CameraDevice::recordingChanged, this, [this] {
        const zrn::RecordingPlan& plan = m_device.recorder()->session()->plan();
        const QString folder = QFile::decodeName(plan.folder.c_str());
        tell(Tone::Information, plan.waitsForTrigger
                                    ? tr("recording to %1 around triggers").arg(folder)
                                    : tr("recording to %1").arg(folder));
        m_toldParts = 0;
        m_recordingTimer.start();
    });
    connect(&m_device, &CameraDevice::recordingRefused, this,
            [this](const QString& why) { tell(Tone::Fault, tr("not recording: %1").arg(why)); });
    connect(&m_device, &CameraDevice::settingsSaved, this, [this](const QString& path) {
        tell(Tone::Information, tr("settings saved to %1").arg(path));
    });
    connect(&m_device, &CameraDevice::settingsLoaded, this, [this](const QString& path) {
        tell(Tone::Information, tr("settings loaded from %1").arg(path));
    });
    connect(&m_device, &CameraDevice::settingsFileFailed, this,
            [this](const QString& why) { tell(Tone::Fault, why); });
}

void CameraEvents::tell(Tone tone, const QString& text)
{
    m_note(tone, QStringLiteral("%1: %2").arg(m_device.serial(), text));
}

void CameraEvents::tellAnswer(const QString& operation, ErrorCode code)
{
    if (code == ErrorCode::Success) {
        tell(Tone::Information, tr("%1: done").arg(operation));
    } else {
        tell(Tone::Fault, explained(tr("%1 failed").arg(operation), code));
    }
}

void CameraEvents::noteReadings(const SettingReadings& readings)
{
    for (const SettingReading& reading : readings) {
        if (!reading.written) {
            continue;
        }
        if (reading.writeCode == ErrorCode::Success) {
            m_written[reading.setting] = reading;
            m_settingsTimer.start();
        } else {
            m_written.erase(reading.setting);
            tell(Tone::Fault, explained(tr("%1 %2 was refused")
                                            .arg(labelOf(reading.setting),
                                                 valueText(reading.setting, reading.wanted)),
                                        reading.writeCode));
        }
    }
}

void CameraEvents::tellSettings()
{
    for (const auto& [setting, reading] : m_written) {
        const QString wanted = valueText(setting, reading.wanted);
        const bool isRounded =
            reading.readCode == ErrorCode::Success && reading.value != reading.wanted;
        tell(Tone::Information,
             isRounded ? tr("%1 set to %2; the camera has %3")
                             .arg(labelOf(setting), wanted, valueText(setting, reading.value))
                       : tr("%1 set to %2").arg(labelOf(setting), wanted));
    }
    m_written.clear();
}

void CameraEvents::tellHealth()
{
    const CameraHealth& health = m_device.health();
    const CameraState before = std::exchange(m_state, health.state);
    const bool isNews = m_state != before;
    const bool wasAway = before == CameraState::Lost || before == CameraState::Unusable;
    const QString refusalBefore = std::exchange(m_refusal, health.refusal);
    if (m_state == CameraState::Lost && !m_refusal.isEmpty() && m_refusal != refusalBefore) {
        tell(Tone::Fault, tr("cannot be had: %1").arg(m_refusal));
    } else if (m_state == CameraState::Lost && isNews) {
        tell(Tone::Fault, tr("does not answer any more"));
    } else if (m_state == CameraState::Unusable && isNews) {
        tell(Tone::Fault, explained(tr("cannot be used"), health.code));
    } else if (m_state == CameraState::Silent && isNews) {
        tell(Tone::Attention, tr("sends no frames, although the stream runs"));
    } else if (m_state == CameraState::Streaming && (wasAway || before == CameraState::Silent)) {
        tell(Tone::Information, tr("sends frames again"));
    } else if (m_state == CameraState::Idle && wasAway) {
        tell(Tone::Information, tr("is there again"));
    }
    const bool answered = std::exchange(m_answersControls, health.answersControls);
    if (answered && !m_answersControls && m_device.isConnected()) {
        tell(Tone::Attention, tr("sends frames, but refuses control requests"));
    }
}

void CameraEvents::tellRecording()
{
    if (!m_device.isRecording()) {
        m_recordingTimer.stop();
    }
    const std::vector<zrn::RecordedPart> parts = m_device.recorder()->parts();
    for (; m_toldParts < parts.size(); ++m_toldParts) {
        const zrn::RecordedPart& part = parts[m_toldParts];
        QStringList paths;
        for (const zrn::RecordedFile& file : part.files) {
            paths += pathOf(file);
        }
        const QString account = QStringList{accountOf(part), paths.join(QStringLiteral(", "))}.join(
            QStringLiteral(": "));
        if (part.failure.empty()) {
            tell(Tone::Information, tr("recorded %1").arg(account));
        } else {
            tell(Tone::Fault, tr("the recording ended early: %1; %2 frames not written; kept %3")
                                  .arg(QString::fromLocal8Bit(part.failure.c_str()))
                                  .arg(part.unwritten)
                                  .arg(account));
        }
    }
}

} // namespace zrnview
