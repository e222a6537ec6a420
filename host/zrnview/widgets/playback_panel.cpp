#include "zrnview/widgets/playback_panel.h"

#include "zrnview/widgets/elided_label.h"
#include "zrnview/widgets/frame_panel.h"
#include "zrnview/widgets/notice_bar.h"
#include "zrnview/widgets/pane_area.h"
#include "zrnview/widgets/record_strip.h"
#include "zrnview/widgets/time_line.h"

#include <QComboBox>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QListWidget>
#include <QSignalBlocker>
#include <QToolButton>
#include <QVBoxLayout>

#include <array>

namespace zrnview
{
namespace
{

constexpr std::array speeds = {0.1, 0.25, 0.5, 1.0, 2.0, 4.0};
constexpr double ordinarySpeed = 1;
constexpr int shownEvents = 4; ///< lines

} // namespace

PlaybackPanel::PlaybackPanel(const QString& path, QWidget* parent)
    : QFrame(parent)
    , m_player(new Player(m_station))
    , m_title(new ElidedLabel(Qt::ElideMiddle, this))
    , m_about(new ElidedLabel(Qt::ElideRight, this))
    , m_position(new QLabel(this))
    , m_play(new QToolButton(this))
    , m_verify(new QToolButton(this))
    , m_speed(new QComboBox(this))
    , m_slider(new TimeLine(this))
    , m_eventsButton(new QToolButton(this))
    , m_events(new QListWidget(this))
    , m_notice(new NoticeBar(this))
    , m_frames(new FramePanel(m_station, this))
{
    setFrameShape(QFrame::StyledPanel);
    m_title->setText(QFileInfo(path).fileName());
    auto* layout = new QVBoxLayout(this);
    const int space = fontMetrics().averageCharWidth();
    layout->setContentsMargins(space, space / 2, space, space);
    layout->addWidget(makeHeader());
    layout->addWidget(m_notice);
    layout->addWidget(m_frames, 1);
    layout->addWidget(makeTransport());
    layout->addWidget(m_events);
    connect(&m_frames->panes(), &PaneArea::activated, this, &PlaybackPanel::activated);

    m_player->moveToThread(&m_thread);
    connect(&m_thread, &QThread::finished, m_player, &QObject::deleteLater);
    connectPlayer();
    m_thread.setObjectName(QStringLiteral("playback"));
    m_thread.start();
    QMetaObject::invokeMethod(m_player, [this, path] { m_player->open(path); });
}

PlaybackPanel::~PlaybackPanel()
{
    m_thread.quit();
    m_thread.wait();
}

QWidget* PlaybackPanel::makeHeader()
{
    auto* header = new QWidget(this);
    auto* layout = new QHBoxLayout(header);
    layout->setContentsMargins(0, 0, 0, 0);
    QFont bold = font();
    bold.setBold(true);
    m_title->setFont(bold);
    auto* snapshot = new QToolButton(header);
    snapshot->setText(tr("Snapshot"));
    m_eventsButton->setText(tr("Events"));
    m_eventsButton->setToolTip(tr("Shows what happened while it was recorded"));
    m_eventsButton->setCheckable(true);
    m_eventsButton->hide();
    m_verify->setText(tr("Verify"));
    m_verify->setToolTip(tr("Reads every frame and checks that nothing was damaged"));
    auto* close = new QToolButton(header);
    close->setText(QStringLiteral("✕"));
    close->setToolTip(tr("Close the recording"));
    m_about->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    layout->addWidget(m_title);
    layout->addWidget(m_about, 1);
    for (QToolButton* button : {m_eventsButton, m_verify, snapshot, close}) {
        button->setFocusPolicy(Qt::StrongFocus);
        layout->addWidget(button);
    }
    connect(m_eventsButton, &QToolButton::toggled, m_events, &QWidget::setVisible);
    connect(snapshot, &QToolButton::clicked, this, &PlaybackPanel::snapshotRequested);
    connect(close, &QToolButton::clicked, this, &PlaybackPanel::closed);
    connect(m_verify, &QToolButton::clicked, this, [this] {
        m_verify->setEnabled(false);
        QMetaObject::invokeMethod(m_player, &Player::verify);
    });
    return header;
}

QWidget* PlaybackPanel::makeTransport()
{
    auto* transport = new QWidget(this);
    auto* layout = new QHBoxLayout(transport);
    layout->setContentsMargins(0, 0, 0, 0);
    const auto addStep = [this, layout](const QString& text, const QString& tip, int frames) {
        auto* button = new QToolButton(this);
        button->setText(text);
        button->setToolTip(tip);
        button->setAccessibleName(tip);
        button->setFocusPolicy(Qt::StrongFocus);
        button->setAutoRepeat(true);
        layout->addWidget(button);
        connect(button, &QToolButton::clicked, this, [this, frames] { step(frames); });
    };
    m_play->setText(tr("Play"));
    m_play->setToolTip(tr("Plays or pauses (Ctrl+Space)"));
    m_play->setFocusPolicy(Qt::StrongFocus);
    m_play->setMinimumWidth(fontMetrics().horizontalAdvance(tr("Pause")) * 2);
    layout->addWidget(m_play);
    addStep(QStringLiteral("−1"), tr("One frame back"), -1);
    addStep(QStringLiteral("+1"), tr("One frame on"), 1);
    m_slider->setAccessibleName(tr("Position in the recording"));
    layout->addWidget(m_slider, 1);
    layout->addWidget(m_position);
    for (const double speed : speeds) {
        m_speed->addItem(QStringLiteral("× %1").arg(speed), speed);
    }
    m_speed->setCurrentIndex(m_speed->findData(ordinarySpeed));
    m_speed->setToolTip(tr("Speed"));
    layout->addWidget(m_speed);
    m_events->setAccessibleName(tr("Events in the recording"));
    m_events->setMaximumHeight(fontMetrics().lineSpacing() * (shownEvents + 1));
    m_events->hide();

    connect(m_play, &QToolButton::clicked, this, &PlaybackPanel::togglePlaying);
    connect(m_slider, &QSlider::valueChanged, this, [this](int position) {
        QMetaObject::invokeMethod(m_player, [this, position] { m_player->seek(position); });
    });
    const auto goTo = [this] {
        m_slider->setValue(
            m_info.events.at(static_cast<std::size_t>(m_events->currentRow())).position);
    };
    connect(m_events, &QListWidget::itemClicked, this, goTo);
    connect(m_events, &QListWidget::itemActivated, this, goTo);
    connect(m_speed, qOverload<int>(&QComboBox::currentIndexChanged), this, [this] {
        const double speed = m_speed->currentData().toDouble();
        QMetaObject::invokeMethod(m_player, [this, speed] { m_player->setSpeed(speed); });
    });
    return transport;
}

void PlaybackPanel::connectPlayer()
{
    connect(m_player, &Player::opened, this, &PlaybackPanel::showInfo);
    connect(m_player, &Player::positionChanged, this, &PlaybackPanel::showPosition);
    connect(m_player, &Player::verified, this, &PlaybackPanel::showVerdict);
    connect(m_player, &Player::verifying, this, [this](int position) {
        m_notice->show(NoticeBar::Tone::Information,
                       tr("Verifying: frame %1 of %2").arg(position).arg(m_info.frames), QString());
    });
    connect(m_player, &Player::failed, this,
            [this](const QString& why) { m_notice->show(NoticeBar::Tone::Fault, why, QString()); });
    connect(m_player, &Player::playingChanged, this, [this](bool playing) {
        m_playing = playing;
        m_play->setText(playing ? tr("Pause") : tr("Play"));
    });
}

void PlaybackPanel::togglePlaying()
{
    QMetaObject::invokeMethod(m_player, m_playing ? &Player::pause : &Player::play);
}

void PlaybackPanel::step(int frames)
{
    QMetaObject::invokeMethod(m_player, &Player::pause);
    m_slider->setValue(m_slider->value() + frames);
}

void PlaybackPanel::showInfo(const RecordingInfo& info)
{
    m_info = info;
    const QSignalBlocker blocker(m_slider);
    m_slider->setRange(0, std::max(info.frames - 1, 0));
    showEvents();
    m_about->setText(tr("%1 frames · %2 s · %3")
                         .arg(info.frames)
                         .arg(info.seconds, 0, 'f', 1)
                         .arg(byteText(static_cast<double>(info.bytes))));
    if (!info.complete) {
        m_notice->show(NoticeBar::Tone::Attention,
                       tr("This recording was cut off before it was closed."),
                       tr("All %1 whole frames are here; %2 behind them are lost.")
                           .arg(info.frames)
                           .arg(byteText(static_cast<double>(info.lostBytes))));
    }
}

void PlaybackPanel::showEvents()
{
    m_slider->setEvents(m_info.events);
    for (const RecordedEvent& event : m_info.events) {
        m_events->addItem(textOf(event));
    }
    m_eventsButton->setVisible(!m_info.events.empty());
    m_eventsButton->setChecked(!m_info.events.empty());
}

void PlaybackPanel::showPosition(int position)
{
    const QSignalBlocker blocker(m_slider);
    m_slider->setValue(position);
    m_position->setText(tr("%1 of %2").arg(position + 1).arg(m_info.frames));
}

void PlaybackPanel::showVerdict(const QVector<int>& damaged)
{
    m_verify->setEnabled(true);
    if (damaged.isEmpty()) {
        m_notice->show(NoticeBar::Tone::Information,
                       tr("All %1 frames are as they were recorded.").arg(m_info.frames),
                       QString());
        return;
    }
    m_notice->show(NoticeBar::Tone::Fault,
                   tr("%1 of %2 frames are damaged.").arg(damaged.size()).arg(m_info.frames),
                   tr("The first of them is frame %1.").arg(damaged.first() + 1));
}

} // namespace zrnview
