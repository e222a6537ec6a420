#include "zrnview/widgets/main_window.h"

#include "zrnview/device/bench.h"
#include "zrnview/device/camera_device.h"
#include "zrnview/widgets/camera_list.h"
#include "zrnview/widgets/camera_panel.h"
#include "zrnview/widgets/explanation.h"
#include "zrnview/widgets/frame_panel.h"
#include "zrnview/widgets/image_view.h"
#include "zrnview/widgets/pane_area.h"
#include "zrnview/widgets/playback_panel.h"
#include "zrnview/widgets/record_strip.h"
#include "zrnview/widgets/side_panel.h"

#include <QCloseEvent>
#include <QDir>
#include <QDockWidget>
#include <QFileDialog>
#include <QGridLayout>
#include <QLabel>
#include <QMessageBox>
#include <QStatusBar>

#include <algorithm>
#include <cmath>

namespace zrnview
{
namespace
{

constexpr int statusMilliseconds = 8000;

} // namespace

MainWindow::MainWindow(Bench& bench, const WindowOptions& options)
    : m_bench(bench)
    , m_options(options)
    , m_area(new QWidget(this))
    , m_grid(new QGridLayout(m_area))
    , m_empty(new QLabel(m_area))
    , m_cameraList(new CameraList(bench, this))
    , m_side(new SidePanel(this))
{
    setWindowTitle(tr("zrnview"));
    setCentralWidget(m_area);
    m_grid->setContentsMargins(4, 4, 4, 4);
    m_grid->setSpacing(4);
    m_empty->setAlignment(Qt::AlignCenter);
    m_empty->setWordWrap(true);
    updateEmpty();
    buildSide();
    buildMenus();
    arrange();
    statusBar()->setSizeGripEnabled(false);

    connect(&m_bench, &Bench::deviceAdded, this,
            [this](CameraDevice* device, bool isAskedFor) { welcome(*device, isAskedFor); });
    connect(&m_bench, &Bench::busChanged, this, &MainWindow::updateEmpty);
    connect(&m_bench, &Bench::stateChanged, this, [this] {
        updateEmpty();
        if (m_bench.state() == Bench::State::Failed) {
            note(EventLog::Tone::Fault, m_bench.description());
        }
    });
    connect(m_cameraList, &CameraList::shownChanged, this,
            [this](CameraDevice* device, bool shown) {
                if (!shown) {
                    hideCamera(*device);
                    return;
                }
                device->take();
                showCamera(*device);
            });
    connect(m_cameraList, &CameraList::chosen, this, [this](CameraDevice* device) {
        for (CameraPanel* panel : m_panels) {
            if (&panel->device() == device) {
                activate(*panel);
            }
        }
    });
    connect(m_side, &SidePanel::inputFinished, this, [this] {
        if (m_active) {
            m_active->frames().panes().view(0).setFocus();
        }
    });
    connect(&m_snapshots, &Snapshots::written, this, [this](const QStringList& paths) {
        note(EventLog::Tone::Information, tr("Saved %1").arg(paths.join(QStringLiteral(", "))));
    });
    connect(&m_snapshots, &Snapshots::failed, this, [this](const QString& why) {
        note(EventLog::Tone::Fault, tr("The snapshot was not saved: %1").arg(why));
    });
    relayDriverMessages(events());
    m_bench.setInitialCameras(m_options.camerasToShow);
}

void MainWindow::buildSide()
{
    const auto addDock = [this](const QString& title, const char* name, QWidget* content) {
        auto* dock = new QDockWidget(title, this);
        dock->setObjectName(QLatin1String(name));
        dock->setFeatures(QDockWidget::DockWidgetMovable | QDockWidget::DockWidgetFloatable);
        dock->setWidget(content);
        addDockWidget(Qt::RightDockWidgetArea, dock);
        return dock;
    };
    QDockWidget* cameras = addDock(tr("Cameras"), "cameras", m_cameraList);
    m_adjust = addDock(tr("No camera chosen"), "adjust", m_side);
    const int line = fontMetrics().height();
    resizeDocks({cameras, m_adjust}, {line * 9, line * 40}, Qt::Vertical);
    resizeDocks({m_adjust}, {fontMetrics().averageCharWidth() * 48}, Qt::Horizontal);
}

void MainWindow::updateEmpty()
{
    const QString advice = adviceOf(m_bench);
    const QString text =
        advice.isEmpty()
            ? tr("Tick a camera in the list to see its images, or open a recording with Ctrl+O.")
            : advice;
    m_empty->setText(QStringLiteral("<big>%1</big>").arg(text.toHtmlEscaped()));
}

void MainWindow::welcome(CameraDevice& device, bool isAskedFor)
{
    connect(&device, &CameraDevice::answered, this,
            [this, &device](const QString& operation, ErrorCode code) {
                if (code == ErrorCode::Success) {
                    note(EventLog::Tone::Information,
                         tr("%1: %2: done").arg(device.serial(), operation));
                    return;
                }
                note(EventLog::Tone::Fault,
                     explained(tr("%1: %2 failed").arg(device.serial(), operation), code));
            });
    connect(&device, &CameraDevice::settingsRead, this,
            [this, &device](const SettingReadings& readings) {
                for (const SettingReading& reading : readings) {
                    if (reading.written && reading.writeCode != ErrorCode::Success) {
                        note(EventLog::Tone::Fault,
                             explained(tr("%1: %2 %3 was refused")
                                           .arg(device.serial(),
                                                QString::fromUtf8(infoOf(reading.setting).label))
                                           .arg(reading.wanted),
                                       reading.writeCode));
                    }
                }
            });
    if (isAskedFor || m_welcomed < m_options.camerasToShow) {
        m_welcomed += isAskedFor ? 0 : 1;
        showCamera(device);
        if (m_options.startStreams) {
            device.startStream();
        }
    }
}

CameraPanel& MainWindow::showCamera(CameraDevice& device)
{
    for (CameraPanel* panel : m_panels) {
        if (&panel->device() == &device) {
            return *panel;
        }
    }
    auto* panel = new CameraPanel(device, m_area);
    m_panels.push_back(panel);
    connect(panel, &CameraPanel::activated, this, [this, panel] { activate(*panel); });
    connect(panel, &CameraPanel::closed, this, [this, &device] { hideCamera(device); });
    connect(panel, &CameraPanel::snapshotRequested, this, [this, panel] {
        activate(*panel);
        takeSnapshot();
    });
    connect(panel, &CameraPanel::recordRequested, this, [this, panel] {
        activate(*panel);
        toggleRecording();
    });
    connect(&panel->recordStrip(), &RecordStrip::openRequested, this,
            [this](const QString& path) { openRecording(path); });
    m_cameraList->setShown(device, true);
    arrange();
    activate(*panel);
    return *panel;
}

void MainWindow::hideCamera(CameraDevice& device)
{
    const auto found =
        std::find_if(m_panels.begin(), m_panels.end(),
                     [&device](CameraPanel* panel) { return &panel->device() == &device; });
    if (found == m_panels.end()) {
        return;
    }
    device.stopStream();
    device.giveBack();
    CameraPanel* panel = *found;
    m_panels.erase(found);
    m_cameraList->setShown(device, false);
    if (m_active == panel) {
        m_active = nullptr;
        showControlsOf(nullptr);
    }
    panel->deleteLater();
    panel->hide();
    arrange();
    if (!m_active && !m_panels.empty()) {
        activate(*m_panels.front());
    }
}

PlaybackPanel& MainWindow::openRecording(const QString& path)
{
    auto* panel = new PlaybackPanel(path, m_area);
    m_recordings.push_back(panel);
    connect(panel, &PlaybackPanel::activated, this, [this, panel] { activate(*panel); });
    connect(panel, &PlaybackPanel::closed, this, [this, panel] { closeRecording(*panel); });
    connect(panel, &PlaybackPanel::snapshotRequested, this, [this, panel] {
        activate(*panel);
        takeSnapshot();
    });
    arrange();
    activate(*panel);
    return *panel;
}

void MainWindow::closeRecording(PlaybackPanel& panel)
{
    m_recordings.erase(std::remove(m_recordings.begin(), m_recordings.end(), &panel),
                       m_recordings.end());
    if (m_activeRecording == &panel) {
        m_activeRecording = nullptr;
    }
    panel.deleteLater();
    panel.hide();
    arrange();
}

EventLog& MainWindow::events()
{
    return m_side->events();
}

void MainWindow::activate(QWidget& panel)
{
    m_activeRecording = qobject_cast<PlaybackPanel*>(&panel);
    auto* camera = qobject_cast<CameraPanel*>(&panel);
    if (!camera || camera == m_active) {
        return;
    }
    if (m_active) {
        m_active->setActive(false);
    }
    m_active = camera;
    m_active->setActive(true);
    showControlsOf(&m_active->device());
}

void MainWindow::activateNext()
{
    const auto found = std::find(m_panels.begin(), m_panels.end(), m_active);
    if (found != m_panels.end()) {
        activate(**(std::next(found) == m_panels.end() ? m_panels.begin() : std::next(found)));
    }
}

void MainWindow::showControlsOf(CameraDevice* device)
{
    m_side->showDevice(device);
    m_adjust->setWindowTitle(device ? device->serial() : tr("No camera chosen"));
}

void MainWindow::arrange()
{
    std::vector<QWidget*> shown(m_panels.begin(), m_panels.end());
    shown.insert(shown.end(), m_recordings.begin(), m_recordings.end());
    while (QLayoutItem* item = m_grid->takeAt(0)) {
        delete item;
    }
    m_empty->setVisible(shown.empty());
    if (shown.empty()) {
        m_grid->addWidget(m_empty, 0, 0);
        return;
    }
    const int columns = static_cast<int>(std::ceil(std::sqrt(shown.size())));
    for (int column = 0; column < std::max(columns, m_grid->columnCount()); ++column) {
        m_grid->setColumnStretch(column, column < columns ? 1 : 0);
    }
    for (int i = 0; i < static_cast<int>(shown.size()); ++i) {
        m_grid->addWidget(shown[static_cast<std::size_t>(i)], i / columns, i % columns);
        shown[static_cast<std::size_t>(i)]->show();
    }
}

FramePanel* MainWindow::activeFrames() const
{
    return m_activeRecording ? &m_activeRecording->frames()
           : m_active        ? &m_active->frames()
                             : nullptr;
}

void MainWindow::takeSnapshot()
{
    FramePanel* frames = activeFrames();
    if (!frames || !frames->display()) {
        note(EventLog::Tone::Attention, tr("There is no image to save yet."));
        return;
    }
    const QJsonObject metadata =
        m_activeRecording ? m_activeRecording->info().metadata : m_active->device().metadata();
    QDir().mkpath(m_options.folder);
    m_snapshots.take(frames->display(), m_options.folder,
                     datedName(metadata[QLatin1String("serial")].toString()), metadata);
}

void MainWindow::toggleRecording()
{
    if (!m_active) {
        return;
    }
    CameraDevice& device = m_active->device();
    if (device.isRecording()) {
        device.stopRecording();
        return;
    }
    QDir().mkpath(m_options.folder);
    device.startRecording(
        QStringLiteral("%1/%2.zrnrec").arg(m_options.folder, datedName(device.serial())));
}

void MainWindow::toggleStream()
{
    if (m_activeRecording) {
        m_activeRecording->togglePlaying();
    } else if (m_active) {
        m_active->toggleStream();
    }
}

void MainWindow::chooseRecording()
{
    const QString path = QFileDialog::getOpenFileName(this, tr("Open recording"), m_options.folder,
                                                      tr("Recordings (*.zrnrec);;All files (*)"));
    if (!path.isEmpty()) {
        openRecording(path);
    }
}

void MainWindow::chooseFolder()
{
    const QString folder = QFileDialog::getExistingDirectory(
        this, tr("Folder for pictures and recordings"), m_options.folder);
    if (!folder.isEmpty()) {
        m_options.folder = folder;
    }
}

void MainWindow::note(EventLog::Tone tone, const QString& text)
{
    events().add(tone, text);
    // The bar would cut the text off without a sign; the events keep all of it.
    const int room = statusBar()->width() - 2 * fontMetrics().averageCharWidth();
    statusBar()->showMessage(statusBar()->fontMetrics().elidedText(text, Qt::ElideRight, room),
                             statusMilliseconds);
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    if (!m_bench.isRecording()) {
        event->accept();
        return;
    }
    const auto answer = QMessageBox::question(this, tr("A recording is running"),
                                              tr("Stop the recording and quit?"),
                                              QMessageBox::Yes | QMessageBox::No, QMessageBox::No);
    event->setAccepted(answer == QMessageBox::Yes);
}

} // namespace zrnview
