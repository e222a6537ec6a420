#include "zrnview/widgets/record_options.h"

#include <QDialogButtonBox>
#include <QFile>
#include <QFormLayout>
#include <QLabel>

#include <limits>

namespace zrnview
{
namespace
{

constexpr int usualFrames = 100;
constexpr double usualSeconds = 10;
constexpr double usualSecondsBefore = 5;
constexpr double mostSeconds = 1e6;
constexpr std::uint64_t memoryBeforeTriggers = 1'000'000'000; // of each camera

std::chrono::nanoseconds nanosecondsIn(const QDoubleSpinBox& field)
{
    return std::chrono::round<std::chrono::nanoseconds>(
        std::chrono::duration<double>(field.value()));
}

} // namespace

RecordOptions::RecordOptions(QWidget* parent)
    : QDialog(parent)
    , m_hasFrames(new QCheckBox(tr("Stop after so many &frames"), this))
    , m_frames(new QSpinBox(this))
    , m_hasSeconds(new QCheckBox(tr("Stop after so &long"), this))
    , m_seconds(new QDoubleSpinBox(this))
    , m_hasTrigger(new QCheckBox(tr("Wait for a &trigger, and keep what came before"), this))
    , m_before(new QDoubleSpinBox(this))
    , m_allCameras(new QCheckBox(tr("&All cameras that stream, together"), this))
{
    setWindowTitle(tr("Recording"));
    m_frames->setRange(1, std::numeric_limits<int>::max());
    m_frames->setValue(usualFrames);
    m_frames->setSuffix(tr(" frames"));
    m_seconds->setRange(0.01, mostSeconds);
    m_seconds->setValue(usualSeconds);
    m_before->setRange(0, mostSeconds);
    m_before->setValue(usualSecondsBefore);
    for (QDoubleSpinBox* field : {m_seconds, m_before}) {
        field->setSuffix(tr(" s"));
    }
    auto* form = new QFormLayout(this);
    const auto add = [form](QCheckBox* box, QWidget* field) {
        form->addRow(box, field);
        field->setEnabled(false);
        field->setAccessibleName(box->text().remove(QLatin1Char('&')));
        connect(box, &QCheckBox::toggled, field, &QWidget::setEnabled);
    };
    add(m_hasFrames, m_frames);
    add(m_hasSeconds, m_seconds);
    add(m_hasTrigger, m_before);
    form->addRow(m_allCameras);
    auto* about =
        new QLabel(tr("These are for the recordings that begin from now on. With a trigger "
                      "(Ctrl+T), frames and time count from there, and the next trigger "
                      "is waited for until the recording is stopped."),
                   this);
    about->setWordWrap(true);
    form->addRow(about);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    form->addRow(buttons);
}

zrn::RecordingPlan RecordOptions::plan(const QString& folder) const
{
    zrn::RecordingPlan plan;
    plan.folder = QFile::encodeName(folder).toStdString();
    if (m_hasFrames->isChecked()) {
        plan.frames = static_cast<std::uint64_t>(m_frames->value());
    }
    if (m_hasSeconds->isChecked()) {
        plan.duration = nanosecondsIn(*m_seconds);
    }
    if (m_hasTrigger->isChecked()) {
        plan.waitsForTrigger = true;
        plan.before = nanosecondsIn(*m_before);
        plan.memoryBytes = memoryBeforeTriggers;
    }
    return plan;
}

} // namespace zrnview
