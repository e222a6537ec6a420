#include "zrnview/widgets/camera_panel.h"

#include "client/result_codes.h"
#include "zrnview/device/camera_device.h"
#include "zrnview/device/white_balance.h"
#include "zrnview/widgets/camera_list.h"
#include "zrnview/widgets/elided_label.h"
#include "zrnview/widgets/explanation.h"
#include "zrnview/widgets/frame_panel.h"
#include "zrnview/widgets/notice_bar.h"
#include "zrnview/widgets/pane_area.h"
#include "zrnview/widgets/preferences.h"
#include "zrnview/widgets/record_strip.h"
#include "zrnview/widgets/theme.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

namespace zrnview
{
namespace
{

using namespace std::chrono_literals;

constexpr auto stuckPeriod = 1s;

} // namespace

CameraPanel::CameraPanel(CameraDevice& device, QWidget* parent)
    : QFrame(parent)
    , m_device(device)
    , m_dot(new QLabel(QStringLiteral("●"), this))
    , m_title(new ElidedLabel(Qt::ElideMiddle, this)) // serials differ at their ends
    , m_state(new ElidedLabel(Qt::ElideRight, this))
    , m_streamButton(new QToolButton(this))
    , m_snapshotButton(new QToolButton(this))
    , m_recordButton(new QToolButton(this))
    , m_notice(new NoticeBar(this))
    , m_restart(m_notice->addButton(tr("Restart the stream")))
    , m_record(new RecordStrip(device, this))
    , m_frames(new FramePanel(device.station(), this))
    , m_colours(device.serial())
    , m_stuckTimer(this)
{
    setFrameShape(QFrame::StyledPanel);
    setAutoFillBackground(true);
    auto* layout = new QVBoxLayout(this);
    const int space = fontMetrics().averageCharWidth();
    layout->setContentsMargins(space, space / 2, space, space);
    layout->addWidget(makeHeader());
    layout->addWidget(m_notice);
    layout->addWidget(m_record);
    layout->addWidget(m_frames, 1);

    connect(&m_device, &CameraDevice::factsChanged, this, &CameraPanel::updateState);
    connect(&m_device, &CameraDevice::healthChanged, this, &CameraPanel::updateState);
    connect(&m_device, &CameraDevice::recordingChanged, this, &CameraPanel::updateState);
    connect(&m_device, &CameraDevice::settingsRead, this, &CameraPanel::updateNotice);
    connect(&m_device, &CameraDevice::recordingRefused, m_record, &RecordStrip::showRefusal);
    connect(&m_device, &CameraDevice::silenceExplained, this, [this](const QStringList& findings) {
        m_findings = findings;
        updateNotice();
    });
    connect(m_restart, &QPushButton::clicked, this, [this] {
        m_device.stopStream();
        m_device.startStream();
    });
    restoreLook(m_device.serial(), m_frames->panes());
    connect(&m_frames->panes(), &PaneArea::lookChanged, this,
            [this] { rememberLook(m_device.serial(), m_frames->panes()); });
    connect(&m_frames->panes(), &PaneArea::activated, this, &CameraPanel::activated);
    rememberColours();
    // A camera that hangs sends no news, so that somebody else has to notice.
    m_stuckTimer.setInterval(stuckPeriod);
    connect(&m_stuckTimer, &QTimer::timeout, this, &CameraPanel::updateNotice);
    m_stuckTimer.start();
    updateState();
}

QWidget* CameraPanel::makeHeader()
{
    auto* header = new QWidget(this);
    auto* layout = new QHBoxLayout(header);
    layout->setContentsMargins(0, 0, 0, 0);
    QFont bold = font();
    bold.setBold(true);
    m_title->setFont(bold);
    m_title->setText(m_device.serial());
    layout->addWidget(m_dot);
    layout->addWidget(m_title);
    // The name comes first where there is not room for all.
    m_state->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    layout->addWidget(m_state, 1);
    m_streamButton->setToolTip(tr("Starts or stops the stream (Ctrl+Space)"));
    m_snapshotButton->setText(tr("Snapshot"));
    m_snapshotButton->setToolTip(tr("Saves the images that are shown as PNG files (Ctrl+S)"));
    m_recordButton->setToolTip(tr("Records every frame without loss (Ctrl+R)"));
    auto* close = new QToolButton(header);
    close->setText(QStringLiteral("✕"));
    close->setToolTip(tr("Stops the stream and takes the camera off the window"));
    close->setAccessibleName(tr("Close %1").arg(m_device.serial()));
    for (QToolButton* button : {m_streamButton, m_snapshotButton, m_recordButton, close}) {
        button->setFocusPolicy(Qt::StrongFocus);
        layout->addWidget(button);
    }
    connect(m_streamButton, &QToolButton::clicked, this, &CameraPanel::toggleStream);
    connect(m_snapshotButton, &QToolButton::clicked, this, &CameraPanel::snapshotRequested);
    connect(m_recordButton, &QToolButton::clicked, this, &CameraPanel::recordRequested);
    connect(close, &QToolButton::clicked, this, &CameraPanel::closed);
    return header;
}

void CameraPanel::rememberColours()
{
    PaneArea& panes = m_frames->panes();
    panes.setPattern(m_colours.pattern());
    panes.offerBalance(m_colours.gains().has_value());
    connect(&panes, &PaneArea::patternChosen, this,
            [this](BayerPattern pattern) { m_colours.setPattern(pattern); });
    connect(&panes, &PaneArea::balanceRequested, this, &CameraPanel::balanceColours);
    connect(&panes, &PaneArea::lastBalanceRequested, this, [this] {
        setColourGains(m_device, m_colours.gains().value());
        emit told(tr("%1: colour gains set as in the last white balance").arg(m_device.serial()));
    });
}

void CameraPanel::balanceColours()
{
    PaneArea& panes = m_frames->panes();
    if (!m_frames->display()) {
        return;
    }
    const QRect region = panes.tool() == Tool::Rectangle ? panes.selection().rectangle() : QRect();
    const WhiteBalance balance =
        whiteBalanceFor(m_device, *m_frames->display(), panes.pattern(), region);
    if (!balance.gains) {
        emit told(tr("%1: no white balance. %2.").arg(m_device.serial(), balance.problem));
        return;
    }
    setColourGains(m_device, *balance.gains);
    m_colours.setGains(*balance.gains);
    panes.offerBalance(true);
    emit told(tr("%1: white balance with R %2, GR %3, GB %4, B %5")
                  .arg(m_device.serial())
                  .arg(balance.gains->at(0))
                  .arg(balance.gains->at(1))
                  .arg(balance.gains->at(2))
                  .arg(balance.gains->at(3)));
}

void CameraPanel::setActive(bool active)
{
    m_active = active;
    setTextColour(*m_title,
                  active ? palette().color(QPalette::Link) : palette().color(QPalette::WindowText));
}

void CameraPanel::toggleStream()
{
    m_device.isStreaming() ? m_device.stopStream() : m_device.startStream();
}

void CameraPanel::mousePressEvent(QMouseEvent* event)
{
    emit activated();
    QFrame::mousePressEvent(event);
}

void CameraPanel::changeEvent(QEvent* event)
{
    QFrame::changeEvent(event);
    if (event->type() == QEvent::PaletteChange) {
        setActive(m_active);
    }
}

void CameraPanel::updateState()
{
    const Colours colours = coloursFor(palette());
    const CameraState state = m_device.health().state;
    const bool streaming = m_device.isStreaming();

    setTextColour(*m_dot, state == CameraState::Streaming ? colours.good
                          : state == CameraState::Silent  ? colours.attention
                          : state == CameraState::Lost || state == CameraState::Unusable
                              ? colours.fault
                              : colours.dimText);
    const CameraFacts& facts = m_device.facts();
    m_state->setText(
        facts.width == 0
            ? stateText(m_device)
            : tr("%1 × %2 · %3").arg(facts.width).arg(facts.height).arg(stateText(m_device)));
    m_streamButton->setText(streaming ? tr("Stop") : tr("Start"));
    m_streamButton->setEnabled(m_device.isConnected());
    m_recordButton->setText(m_device.isRecording() ? tr("Stop recording") : tr("Record"));
    m_recordButton->setEnabled(state == CameraState::Streaming || m_device.isRecording());
    m_snapshotButton->setEnabled(m_frames->display() != nullptr || streaming);
    m_frames->panes().setPlaceholder(streaming ? tr("Waiting for the first frame…")
                                               : tr("Stopped. Start shows the live images."));
    updateNotice();
}

void CameraPanel::updateNotice()
{
    const CameraHealth& health = m_device.health();
    m_restart->setVisible(health.state == CameraState::Silent);
    if (m_device.isStuck()) {
        m_notice->show(NoticeBar::Tone::Fault, tr("A request to this camera is not answered."),
                       tr("Wait, or unplug the camera: that ends the request. The window and the "
                          "other cameras go on."));
        return;
    }
    switch (health.state) {
    case CameraState::Lost:
        m_notice->show(
            NoticeBar::Tone::Fault,
            health.refusal.isEmpty() ? tr("This camera does not answer any more.")
                                     : tr("This camera cannot be had: %1.").arg(health.refusal),
            health.refusal.isEmpty()
                ? tr("It was probably unplugged, or lost its supply. Plug it in again: it is "
                     "found by its serial and goes on with its settings.")
                : tr("It is tried again, and goes on with its settings."));
        return;
    case CameraState::Unusable:
        m_notice->show(NoticeBar::Tone::Fault,
                       tr("This camera was found, but cannot be used: %1.")
                           .arg(QString::fromStdString(zrn::describeResult(health.code))),
                       remedyFor(health.code));
        return;
    case CameraState::Silent:
        m_notice->show(
            NoticeBar::Tone::Attention,
            tr("No frame for %1 s, although the stream runs.")
                .arg(std::chrono::duration<double>(health.counters.silence).count(), 0, 'f', 0),
            m_findings.join(QLatin1Char('\n')));
        return;
    default:
        break;
    }
    if (!health.answersControls && m_device.isConnected()) {
        m_notice->show(
            NoticeBar::Tone::Attention,
            tr("Frames arrive, but the camera refuses control requests."),
            tr("Settings may not take effect. If it stays like this, replug the camera."));
        return;
    }
    m_notice->clear();
}

} // namespace zrnview
