#include "zrnview/widgets/stream_panel.h"

#include "zrnview/widgets/explanation.h"
#include "zrnview/widgets/theme.h"

#include <QFormLayout>
#include <QGroupBox>
#include <QSignalBlocker>
#include <QVBoxLayout>

#include <limits>

namespace zrnview
{
namespace
{

using CameraSpace::TriggerMode;

constexpr int maximumCache = 1024; ///< a frame takes megabytes
constexpr int timeoutStep = 100;

} // namespace

StreamPanel::StreamPanel(CameraDevice& device, QWidget* parent)
    : QWidget(parent)
    , m_device(device)
    , m_oldest(new QRadioButton(tr("&Oldest first: every frame, in order"), this))
    , m_newest(new QRadioButton(tr("&Newest first: least delay, leaves frames out"), this))
    , m_cache(new NumberField(this))
    , m_timeout(new NumberField(this))
    , m_exposureCheck(new QCheckBox(tr("Verify &exposure after writing"), this))
    , m_gainCheck(new QCheckBox(tr("Verify &gain after writing"), this))
    , m_discard(new QPushButton(tr("&Discard cached frames"), this))
    , m_message(new QLabel(this))
    , m_account(new QLabel(this))
{
    m_message->setWordWrap(true);
    m_message->hide();
    auto* layout = new QVBoxLayout(this);
    for (QWidget* part : {makeOrder(), makeCache(), makeChecks(), makeAccount()}) {
        layout->addWidget(part);
    }
    layout->addWidget(m_message);
    layout->addStretch(1);

    connect(&m_device, &CameraDevice::healthChanged, this, &StreamPanel::updateHealth);
    connect(&m_device, &CameraDevice::settingsRead, this, [this](const SettingReadings& readings) {
        for (const SettingReading& reading : readings) {
            show(reading);
        }
    });
    for (const SettingInfo& info : settings()) {
        if (const SettingReading* reading = m_device.reading(info.setting)) {
            show(*reading);
        }
    }
    updateHealth();
}

QWidget* StreamPanel::makeOrder()
{
    auto* group = new QGroupBox(tr("Order of frames"), this);
    auto* layout = new QVBoxLayout(group);
    layout->addWidget(m_oldest);
    layout->addWidget(m_newest);
    const auto choose = [this](QRadioButton* button, TriggerMode mode) {
        connect(button, &QRadioButton::clicked, this,
                [this, mode] { m_device.set(Setting::TriggerOrder, static_cast<qint64>(mode)); });
    };
    choose(m_oldest, TriggerMode::Oldest);
    choose(m_newest, TriggerMode::Newest);
    return group;
}

QWidget* StreamPanel::makeCache()
{
    auto* group = new QGroupBox(tr("Cache of the driver"), this);
    auto* form = new QFormLayout(group);
    m_cache->setRange(1, maximumCache);
    m_cache->setSuffix(tr(" frames"));
    m_cache->setToolTip(tr("How many frames the driver keeps. Can be changed only while the stream "
                           "is stopped."));
    m_timeout->setRange(0, std::numeric_limits<int>::max());
    m_timeout->setSingleStep(timeoutStep);
    m_timeout->setSuffix(tr(" ms"));
    m_timeout->setToolTip(tr("How long a grab waits for a frame before it gives up"));
    form->addRow(tr("&Size"), m_cache);
    form->addRow(tr("Grab &timeout"), m_timeout);
    form->addRow(m_discard);
    connect(m_cache, qOverload<int>(&QSpinBox::valueChanged), this,
            [this](int value) { m_device.set(Setting::CacheFrames, value); });
    connect(m_timeout, qOverload<int>(&QSpinBox::valueChanged), this,
            [this](int value) { m_device.set(Setting::GrabTimeout, value); });
    for (NumberField* field : {m_cache, m_timeout}) {
        connect(field, &NumberField::finished, this, &StreamPanel::finished);
        const auto noteLimit = [this](const QString& note) {
            m_limitNote = note;
            tell(note, coloursFor(palette()).attention);
        };
        connect(field, &NumberField::limited, this, noteLimit);
        connect(field, &NumberField::edited, this, [noteLimit] { noteLimit(QString()); });
    }
    connect(m_discard, &QPushButton::clicked, this, [this] { m_device.discardFrames(); });
    return group;
}

QWidget* StreamPanel::makeChecks()
{
    auto* group = new QGroupBox(tr("Read-back in the driver"), this);
    auto* layout = new QVBoxLayout(group);
    layout->addWidget(m_exposureCheck);
    layout->addWidget(m_gainCheck);
    connect(m_exposureCheck, &QCheckBox::clicked, this,
            [this](bool on) { m_device.set(Setting::ExposureCheck, on ? 1 : 0); });
    connect(m_gainCheck, &QCheckBox::clicked, this,
            [this](bool on) { m_device.set(Setting::GainCheck, on ? 1 : 0); });
    return group;
}

QWidget* StreamPanel::makeAccount()
{
    auto* group = new QGroupBox(tr("Account since the start"), this);
    auto* layout = new QVBoxLayout(group);
    m_account->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(m_account);
    return group;
}

void StreamPanel::show(const SettingReading& reading)
{
    const QSignalBlocker cacheBlocker(m_cache);
    const QSignalBlocker timeoutBlocker(m_timeout);
    const bool readable = reading.readCode == ErrorCode::Success;
    switch (reading.setting) {
    case Setting::TriggerOrder:
        m_newest->setChecked(readable && reading.value == 0);
        m_oldest->setChecked(readable && reading.value != 0);
        break;
    case Setting::CacheFrames:
        if (readable) {
            m_cache->setValue(static_cast<int>(reading.value));
        }
        break;
    case Setting::GrabTimeout:
        if (readable) {
            m_timeout->setValue(static_cast<int>(reading.value));
        }
        break;
    case Setting::ExposureCheck:
        m_exposureCheck->setChecked(reading.value != 0);
        break;
    case Setting::GainCheck:
        m_gainCheck->setChecked(reading.value != 0);
        break;
    default:
        return;
    }
    explain(reading);
}

void StreamPanel::explain(const SettingReading& reading)
{
    if (!reading.written) {
        return;
    }
    if (reading.writeCode == ErrorCode::Success) {
        tell(m_limitNote, coloursFor(palette()).attention);
        return;
    }
    tell(explained(tr("%1 %2 was refused")
                       .arg(QString::fromUtf8(infoOf(reading.setting).label))
                       .arg(reading.wanted),
                   reading.writeCode),
         coloursFor(palette()).fault);
}

void StreamPanel::tell(const QString& text, const QColor& colour)
{
    setTextColour(*m_message, colour);
    m_message->setText(text);
    m_message->setVisible(!text.isEmpty());
}

void StreamPanel::updateHealth()
{
    const bool connected = m_device.isConnected();
    const bool free = connected && !m_device.isRecording();
    for (QWidget* widget :
         {static_cast<QWidget*>(m_timeout), static_cast<QWidget*>(m_exposureCheck),
          static_cast<QWidget*>(m_gainCheck), static_cast<QWidget*>(m_discard)}) {
        widget->setEnabled(connected);
    }
    m_oldest->setEnabled(free);
    m_newest->setEnabled(free);
    m_cache->setEnabled(connected && !m_device.isStreaming());

    const zrn::StreamCounters& counters = m_device.health().counters;
    m_account->setText(
        tr("%1 frames, %2 missing, %3 repeated\n%4 grabs without a frame, %5 unusable\n"
           "driver measures %6 frames/s")
            .arg(counters.frames)
            .arg(counters.missing())
            .arg(counters.repeated)
            .arg(counters.timeouts)
            .arg(counters.unusable)
            .arg(m_device.health().driverRate, 0, 'f', 1));
}

} // namespace zrnview
