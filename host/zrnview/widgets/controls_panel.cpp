#include "zrnview/widgets/controls_panel.h"

#include "client/result_codes.h"

#include <QGridLayout>
#include <QGroupBox>
#include <QMessageBox>
#include <QVBoxLayout>

#include <array>

namespace zrnview
{
namespace
{

constexpr std::array lightSettings = {Setting::Exposure, Setting::Gain};
constexpr std::array carrierSettings = {Setting::RGain, Setting::GrGain, Setting::GbGain,
                                        Setting::BGain, Setting::Gamma,  Setting::Sharpness,
                                        Setting::Hue};

} // namespace

ControlsPanel::ControlsPanel(CameraDevice& device, QWidget* parent)
    : QWidget(parent)
    , m_device(device)
    , m_ranges(new QLabel(this))
    , m_carriers(new CarrierView(this))
    , m_reset(new QPushButton(tr("&Reset camera…"), this))
{
    const auto makeGroup = [this](const QString& title) {
        auto* group = new QGroupBox(title, this);
        auto* grid = new QGridLayout(group);
        grid->setColumnStretch(1, 1);
        return std::pair(group, grid);
    };
    const auto [light, lightGrid] = makeGroup(tr("Light"));
    const auto [colour, colourGrid] = makeGroup(tr("Colour and picture"));
    const auto addRow = [this](Setting setting, QGridLayout& grid) {
        auto* row = new ControlRow(setting, grid, grid.parentWidget());
        m_rows[setting] = row;
        connect(row, &ControlRow::requested, this,
                [this](Setting which, qint64 value) { m_device.set(which, value); });
        connect(row, &ControlRow::finished, this, &ControlsPanel::finished);
        connect(row, &ControlRow::pointedAt, this, [this](Setting which, bool pointed) {
            m_carriers->preview(pointed ? std::optional(which) : std::nullopt);
        });
    };
    for (const Setting setting : lightSettings) {
        addRow(setting, *lightGrid);
    }
    m_rows.at(Setting::Exposure)->setLogarithmic(true);
    m_ranges->setWordWrap(true);
    lightGrid->addWidget(m_ranges, lightGrid->rowCount(), 0, 1, 4);
    for (const Setting setting : carrierSettings) {
        addRow(setting, *colourGrid);
    }

    auto* sharing = new QGroupBox(tr("Shared controls"), this);
    auto* sharingLayout = new QVBoxLayout(sharing);
    sharingLayout->addWidget(m_carriers);

    m_reset->setToolTip(tr("Tells the camera to go back to its initial state"));
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(light);
    layout->addWidget(colour);
    layout->addWidget(sharing);
    layout->addWidget(m_reset, 0, Qt::AlignLeft);
    layout->addStretch(1);

    connect(m_reset, &QPushButton::clicked, this, &ControlsPanel::askForReset);
    connect(&m_device, &CameraDevice::factsChanged, this, &ControlsPanel::updateRanges);
    connect(&m_device, &CameraDevice::healthChanged, this, &ControlsPanel::updateEnabled);
    connect(&m_device, &CameraDevice::settingsRead, this, &ControlsPanel::show);
    updateRanges();
    updateEnabled();
    for (const SettingInfo& info : settings()) {
        if (const SettingReading* reading = m_device.reading(info.setting)) {
            show({*reading});
        }
    }
}

void ControlsPanel::askForReset()
{
    auto* question = new QMessageBox(QMessageBox::Question, tr("Reset camera"),
                                     tr("Reset %1 to its initial state?").arg(m_device.serial()),
                                     QMessageBox::Reset | QMessageBox::Cancel, this);
    question->setInformativeText(tr("Image settings may change. The stream goes on."));
    question->setDefaultButton(QMessageBox::Cancel);
    question->setAttribute(Qt::WA_DeleteOnClose);
    connect(question, &QMessageBox::buttonClicked, this, [this, question](QAbstractButton* button) {
        if (question->standardButton(button) == QMessageBox::Reset) {
            m_device.resetCamera();
        }
    });
    question->open();
}

void ControlsPanel::updateRanges()
{
    const CameraFacts& facts = m_device.facts();
    const qint64 shortest = facts.exposure.minimum.count();
    const qint64 longest = facts.exposure.maximum.count();
    const bool rangeKnown = longest > shortest && facts.exposureRangeCode == ErrorCode::Success;
    if (rangeKnown) {
        m_rows.at(Setting::Exposure)->setRange(shortest, longest);
    }
    if (facts.gain.maximum >= facts.gain.minimum && facts.gain.maximum > 0) {
        m_rows.at(Setting::Gain)->setRange(facts.gain.minimum, facts.gain.maximum);
    }
    const QLocale locale;
    const QString exposure =
        rangeKnown
            ? tr("Exposure %1 to %2 µs").arg(locale.toString(shortest), locale.toString(longest))
            : tr("Exposure range unknown: %1")
                  .arg(QString::fromStdString(zrn::describeResult(facts.exposureRangeCode)));
    m_ranges->setText(tr("%1, gain %2 to %3, as the camera reports")
                          .arg(exposure)
                          .arg(facts.gain.minimum)
                          .arg(facts.gain.maximum));
}

void ControlsPanel::updateEnabled()
{
    const bool connected = m_device.isConnected();
    for (const auto& [setting, row] : m_rows) {
        row->setEnabled(connected);
    }
    m_reset->setEnabled(connected);
}

void ControlsPanel::show(const SettingReadings& readings)
{
    for (const SettingReading& reading : readings) {
        const auto row = m_rows.find(reading.setting);
        if (row != m_rows.end()) {
            row->second->show(reading);
        }
        if (carrierOf(reading.setting)) {
            m_carriers->show(reading);
        }
    }
}

} // namespace zrnview
