#include "zrnview/widgets/record_strip.h"

#include "zrnview/widgets/theme.h"

#include <QFile>
#include <QHBoxLayout>
#include <QPushButton>
#include <QVBoxLayout>

namespace zrnview
{
namespace
{

using namespace std::chrono_literals;

constexpr auto updatePeriod = 250ms;
constexpr int percentages = 100;

QString filesText(const std::vector<zrn::RecordedFile>& files)
{
    return files.empty()       ? QString()
           : files.size() == 1 ? pathOf(files.front())
                               : RecordStrip::tr("%1 files, the last one %2")
                                     .arg(files.size())
                                     .arg(pathOf(files.back()));
}

} // namespace

QString byteText(double bytes)
{
    return QLocale().formattedDataSize(static_cast<qint64>(bytes), 1, QLocale::DataSizeSIFormat);
}

QString durationText(double seconds)
{
    const auto whole = static_cast<qint64>(seconds);
    const QString tail = QStringLiteral("%1:%2")
                             .arg(whole / 60 % 60, whole >= 3600 ? 2 : 1, 10, QLatin1Char('0'))
                             .arg(whole % 60, 2, 10, QLatin1Char('0'));
    return whole >= 3600 ? QStringLiteral("%1:%2").arg(whole / 3600).arg(tail) : tail;
}

QString accountOf(const zrn::RecordedPart& part)
{
    return RecordStrip::tr("%1 frames, %2 missing, %3 in %4")
        .arg(part.frames)
        .arg(part.missing)
        .arg(byteText(static_cast<double>(part.bytes())), durationText(part.seconds));
}

QString pathOf(const zrn::RecordedFile& file)
{
    return QFile::decodeName(file.path.c_str());
}

RecordStrip::RecordStrip(CameraDevice& device, QWidget* parent)
    : QFrame(parent)
    , m_device(device)
    , m_text(new QLabel(this))
    , m_file(new ElidedLabel(Qt::ElideMiddle, this))
    , m_queue(new QProgressBar(this))
    , m_trigger(new QPushButton(tr("Trigger"), this))
    , m_open(new QPushButton(tr("Play back"), this))
    , m_close(new QPushButton(tr("Close"), this))
    , m_timer(this)
{
    m_text->setWordWrap(true);
    m_text->setTextFormat(Qt::RichText);
    m_text->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_queue->setRange(0, percentages);
    m_queue->setFormat(tr("Buffer %p %"));
    m_queue->setToolTip(tr("Frames in memory that the disk has still to take. When this is full, "
                           "new ones are lost, and counted."));
    m_queue->setFixedWidth(fontMetrics().averageCharWidth() * 18);
    auto* layout = new QHBoxLayout(this);
    const int space = fontMetrics().averageCharWidth();
    layout->setContentsMargins(space, space / 2, space, space / 2);
    m_file->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    auto* texts = new QVBoxLayout;
    texts->addWidget(m_text);
    texts->addWidget(m_file);
    layout->addLayout(texts, 1);
    m_trigger->setToolTip(tr("Writes what is kept in memory, and what comes now (Ctrl+T)"));
    for (QWidget* widget : {static_cast<QWidget*>(m_queue), static_cast<QWidget*>(m_trigger),
                            static_cast<QWidget*>(m_open), static_cast<QWidget*>(m_close)}) {
        layout->addWidget(widget);
    }
    hide();

    connect(m_close, &QPushButton::clicked, this, &QWidget::hide);
    connect(m_trigger, &QPushButton::clicked, this, &RecordStrip::triggerRequested);
    connect(m_open, &QPushButton::clicked, this, [this] {
        emit openRequested(pathOf(zrn::sumOf(m_device.recorder()->parts()).files.back()));
    });
    connect(&m_device, &CameraDevice::recordingChanged, this, [this] {
        show();
        m_clock.start();
        m_timer.start();
        refresh();
    });
    m_timer.setInterval(updatePeriod);
    connect(&m_timer, &QTimer::timeout, this, &RecordStrip::refresh);
}

void RecordStrip::showRefusal(const QString& why)
{
    const Colours colours = coloursFor(palette());
    m_text->setText(tr("<font color='%1'><b>Not recording:</b></font> %2")
                        .arg(colours.fault.name(), why.toHtmlEscaped()));
    m_file->hide();
    m_queue->hide();
    m_trigger->hide();
    m_open->hide();
    m_close->show();
    show();
}

void RecordStrip::refresh()
{
    const bool isRunning = m_device.isRecording();
    m_queue->setVisible(isRunning);
    m_trigger->setVisible(isRunning && m_device.recorder()->session()->plan().waitsForTrigger);
    m_file->setVisible(!isRunning);
    m_close->setVisible(!isRunning);
    if (isRunning) {
        m_open->hide();
        showRunning();
    } else {
        m_timer.stop();
        showFinished();
    }
}

void RecordStrip::showRunning()
{
    const zrn::CameraRecorderProgress progress = m_device.recorder()->progress();
    const zrn::RecordingPlan& plan = m_device.recorder()->session()->plan();
    m_text->setText(runningText(progress));
    m_queue->setValue(static_cast<int>(progress.queuedBytes * percentages /
                                       (plan.memoryBytes + plan.file.queueBytes)));
}

QString RecordStrip::runningText(const zrn::CameraRecorderProgress& progress) const
{
    const Colours colours = coloursFor(palette());
    const zrn::RecordingPlan& plan = m_device.recorder()->session()->plan();
    const double seconds = static_cast<double>(m_clock.elapsed()) / 1000;
    const auto bytes = static_cast<double>(progress.bytes);
    const auto freeBytes = static_cast<double>(progress.freeBytes);
    QStringList parts;
    if (plan.waitsForTrigger) {
        parts += tr("%1 sets").arg(progress.sets);
        parts += tr("%1 frames").arg(progress.frames);
    } else {
        parts += plan.duration
                     ? tr("<b>%1</b> of %2")
                           .arg(durationText(seconds),
                                durationText(std::chrono::duration<double>(*plan.duration).count()))
                     : tr("<b>%1</b>").arg(durationText(seconds));
        parts += plan.frames ? tr("%1 of %2 frames").arg(progress.frames).arg(*plan.frames)
                             : tr("%1 frames").arg(progress.frames);
    }
    parts += tr("%1 missing").arg(progress.missing);
    if (progress.queueLosses > 0) {
        parts += tr("<font color='%1'><b>the disk was too slow for %2 of them</b></font>")
                     .arg(colours.fault.name())
                     .arg(progress.queueLosses);
    }
    if (plan.waitsForTrigger || seconds <= 0) {
        parts += byteText(bytes);
        parts += tr("%1 free").arg(byteText(freeBytes));
    } else {
        const double rate = bytes / seconds;
        parts += tr("%1 at %2/s").arg(byteText(bytes), byteText(rate));
        parts += tr("%1 free, enough for %2")
                     .arg(byteText(freeBytes), durationText(rate > 0 ? freeBytes / rate : 0));
    }
    if (progress.isShortened) {
        parts += tr("<font color='%1'>the memory holds less than %2 s</font>")
                     .arg(colours.attention.name())
                     .arg(std::chrono::duration<double>(plan.before).count());
    }
    const QString head =
        progress.isWaiting ? tr("<b>Waiting for a trigger</b> · ")
                           : tr("<font color='%1'><b>● REC</b></font> ").arg(colours.fault.name());
    return head + parts.join(QStringLiteral(" · "));
}

void RecordStrip::showFinished()
{
    const Colours colours = coloursFor(palette());
    const zrn::CameraRecorder& recorder = *m_device.recorder();
    const zrn::RecordedPart sum = zrn::sumOf(recorder.parts());
    const std::string failure = sum.failure.empty() ? recorder.session()->failure() : sum.failure;
    m_open->setVisible(!sum.files.empty());
    m_file->setText(filesText(sum.files));
    QString text = tr("<b>Recorded</b> %1").arg(accountOf(sum));
    if (!failure.empty()) {
        text =
            tr("<font color='%1'><b>The recording ended early: %2.</b></font> %3 frames not "
               "written. Kept: %4")
                .arg(colours.fault.name(), QString::fromLocal8Bit(failure.c_str()).toHtmlEscaped())
                .arg(sum.unwritten)
                .arg(accountOf(sum));
    } else if (sum.files.empty()) {
        text = tr("<b>Nothing was recorded.</b>");
    }
    if (sum.lost.queue > 0) {
        text += tr(" <font color='%1'><b>The disk was too slow for %2 of them.</b></font>")
                    .arg(colours.fault.name())
                    .arg(sum.lost.queue);
    }
    m_text->setText(text);
}

} // namespace zrnview
