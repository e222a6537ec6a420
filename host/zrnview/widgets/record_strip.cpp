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

QString fileOf(const CameraDevice& device)
{
    return QFile::decodeName(device.recorder()->path().c_str());
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

RecordStrip::RecordStrip(CameraDevice& device, QWidget* parent)
    : QFrame(parent)
    , m_device(device)
    , m_text(new QLabel(this))
    , m_file(new ElidedLabel(Qt::ElideMiddle, this))
    , m_queue(new QProgressBar(this))
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
                           "frames wait in the driver's cache."));
    m_queue->setFixedWidth(fontMetrics().averageCharWidth() * 18);
    auto* layout = new QHBoxLayout(this);
    const int space = fontMetrics().averageCharWidth();
    layout->setContentsMargins(space, space / 2, space, space / 2);
    m_file->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    auto* texts = new QVBoxLayout;
    texts->addWidget(m_text);
    texts->addWidget(m_file);
    layout->addLayout(texts, 1);
    for (QWidget* widget : {static_cast<QWidget*>(m_queue), static_cast<QWidget*>(m_open),
                            static_cast<QWidget*>(m_close)}) {
        layout->addWidget(widget);
    }
    hide();

    connect(m_close, &QPushButton::clicked, this, &QWidget::hide);
    connect(m_open, &QPushButton::clicked, this, [this] { emit openRequested(fileOf(m_device)); });
    connect(&m_device, &CameraDevice::recordingChanged, this, [this] {
        show();
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
    m_open->hide();
    m_close->show();
    show();
}

void RecordStrip::refresh()
{
    const zrn::RecordingProgress progress = m_device.recorder()->progress();
    m_queue->setVisible(!progress.finished);
    m_file->setVisible(progress.finished);
    m_open->setVisible(progress.finished && progress.frames > 0);
    m_close->setVisible(progress.finished);
    if (progress.finished) {
        m_timer.stop();
        showFinished(progress);
    } else {
        showRunning(progress);
    }
}

void RecordStrip::showRunning(const zrn::RecordingProgress& progress)
{
    const Colours colours = coloursFor(palette());
    const double left = progress.bytesPerSecond > 0
                            ? static_cast<double>(progress.freeBytes) / progress.bytesPerSecond
                            : 0;
    m_text->setText(
        tr("<font color='%1'><b>● REC</b></font> <b>%2</b> · %3 frames · %4 missing · "
           "%5 at %6/s · %7 free, enough for %8")
            .arg(colours.fault.name(), durationText(progress.seconds))
            .arg(progress.frames)
            .arg(progress.missing)
            .arg(byteText(static_cast<double>(progress.bytes)), byteText(progress.bytesPerSecond),
                 byteText(static_cast<double>(progress.freeBytes)), durationText(left)));
    m_queue->setValue(static_cast<int>(progress.queuedBytes * percentages /
                                       std::max<std::uint64_t>(progress.queueLimit, 1)));
}

void RecordStrip::showFinished(const zrn::RecordingProgress& progress)
{
    const Colours colours = coloursFor(palette());
    m_file->setText(fileOf(m_device));
    const QString outcome =
        progress.error.empty()
            ? tr("<b>Recorded</b>")
            : tr("<font color='%1'><b>The recording ended early: %2.</b></font> %3 frames not "
                 "written. Kept:")
                  .arg(colours.fault.name(), QString::fromStdString(progress.error).toHtmlEscaped())
                  .arg(progress.unwritten);
    m_text->setText(
        tr("%1 %2 frames, %3 missing, %4 in %5")
            .arg(outcome)
            .arg(progress.frames)
            .arg(progress.missing)
            .arg(byteText(static_cast<double>(progress.bytes)), durationText(progress.seconds)));
}

} // namespace zrnview
