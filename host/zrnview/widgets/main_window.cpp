#include "zrnview/widgets/main_window.h"

#include "client/error.h"
#include "zrnview/device/bench.h"
#include "zrnview/device/camera_device.h"
#include "zrnview/widgets/camera_events.h"
#include "zrnview/widgets/camera_list.h"
#include "zrnview/widgets/camera_panel.h"
#include "zrnview/widgets/frame_panel.h"
#include "zrnview/widgets/image_view.h"
#include "zrnview/widgets/pane_area.h"
#include "zrnview/widgets/playback_panel.h"
#include "zrnview/widgets/preferences.h"
#include "zrnview/widgets/record_options.h"
#include "zrnview/widgets/record_strip.h"
#include "zrnview/widgets/side_panel.h"

#include <QCloseEvent>
#include <QDir>
#include <QDockWidget>
#include <QFileDialog>
#include <QGridLayout>
#include <QMessageBox>
#include <QStatusBar>
#include <QStyle>

#include <algorithm>
#include <cmath>

namespace zrnview
{
namespace
{

constexpr int statusMilliseconds = 8000;
/// Parts of the window give way to it.
constexpr QSize smallest(640, 400);

} // namespace

MainWindow::MainWindow(Bench& bench, const WindowOptions& options)
    : m_bench(bench)
    , m_options(options)
    , m_area(new QWidget(this))
    , m_grid(new QGridLayout(m_area))
    , m_empty(new FirstPage(options.examine, m_area))
    , m_cameraList(new CameraList(bench, this))
    , m_side(new SidePanel(this))
    , m_recordOptions(new RecordOptions(this))
{
    setWindowTitle(tr("zrnview"));
    setMinimumSize(smallest);
    setCentralWidget(m_area);
    m_grid->setContentsMargins(4, 4, 4, 4);
    m_grid->setSpacing(4);
    m_empty->virtualButton().setVisible(static_cast<bool>(m_options.startVirtual));
    connect(m_empty, &FirstPage::recordingRequested, this, &MainWindow::chooseRecording);
    connect(m_empty, &FirstPage::virtualCameraRequested, this, &MainWindow::startVirtual);
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
    relayDriverMessages(events(), m_options.printDriverLog);
    m_bench.setInitialCameras(m_options.camerasToShow);
}

void MainWindow::buildSide()
{
    const auto addDock = [this](const QString& title, const char* name, QWidget* content) {
        auto* dock = new QDockWidget(title, this);
        dock->setObjectName(QLatin1String(name));
        dock->setWidget(content);
        addDockWidget(Qt::RightDockWidgetArea, dock);
        return dock;
    };
    m_cameras = addDock(tr("Cameras"), "cameras", m_cameraList);
    m_adjust = addDock(tr("No camera chosen"), "adjust", m_side);
    connect(m_adjust->toggleViewAction(), &QAction::triggered, this, [this](bool shown) {
        m_controlsGaveWay = false;
        if (shown && !hasRoomForControls()) {
            m_adjust->setFloating(true);
        }
    });
    const int line = fontMetrics().height();
    resizeDocks({m_cameras, m_adjust}, {line * 9, line * 40}, Qt::Vertical);
    resizeDocks({m_adjust}, {fontMetrics().averageCharWidth() * 48}, Qt::Horizontal);
}

void MainWindow::updateEmpty()
{
    const QString advice = adviceOf(m_bench);
    const QString text =
        advice.isEmpty()
            ? tr("Tick a camera in the list to see its images, or open a recording with Ctrl+O.")
            : advice;
    m_empty->setText(text);
}

void MainWindow::welcome(CameraDevice& device, bool isAskedFor)
{
    new CameraEvents(
        device, [this](EventLog::Tone tone, const QString& text) { note(tone, text); }, this);
    connect(&device, &CameraDevice::settingChosen, this, [&device](Setting setting, qint64 value) {
        if (isKeptByDriver(setting)) {
            rememberSetting(device.serial(), setting, value);
        }
    });
    connect(&device, &CameraDevice::healthChanged, this, &MainWindow::offerSettingsFiles);
    restoreSettings(device);
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
    panel->frames().setGraphsWanted(m_graphs->isChecked());
    m_panels.push_back(panel);
    connect(panel, &CameraPanel::activated, this, [this, panel] { activate(*panel); });
    connect(panel, &CameraPanel::closed, this, [this, &device] { hideCamera(device); });
    connect(panel, &CameraPanel::snapshotRequested, this, [this, panel] {
        activate(*panel);
        takeSnapshot();
    });
    connect(panel, &CameraPanel::told, this,
            [this](const QString& what) { note(EventLog::Tone::Information, what); });
    connect(panel, &CameraPanel::recordRequested, this, [this, panel] {
        activate(*panel);
        toggleRecording();
    });
    connect(&panel->recordStrip(), &RecordStrip::openRequested, this,
            [this](const QString& path) { openRecording(path); });
    connect(&panel->recordStrip(), &RecordStrip::triggerRequested, &m_bench, &Bench::trigger);
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
    panel->frames().setGraphsWanted(m_graphs->isChecked());
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
    m_adjust->toggleViewAction()->setText(tr("Co&ntrols")); // not the title
    offerSettingsFiles();
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
    const int rows = (static_cast<int>(shown.size()) + columns - 1) / columns;
    for (int row = 0; row < std::max(rows, m_grid->rowCount()); ++row) {
        m_grid->setRowStretch(row, row < rows ? 1 : 0);
    }
    for (int i = 0; i < static_cast<int>(shown.size()); ++i) {
        m_grid->addWidget(shown[static_cast<std::size_t>(i)], i / columns, i % columns);
        shown[static_cast<std::size_t>(i)]->show();
    }
    m_grid->activate();
    makeRoom();
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
        m_bench.stopRecording(device);
        return;
    }
    try {
        m_bench.record(m_recordOptions->plan(m_options.folder),
                       m_recordOptions->ofAllCameras() ? nullptr : &device);
    } catch (const zrn::Error& error) {
        emit device.recordingRefused(QString::fromUtf8(error.what()));
    }
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
        rememberFolder(folder);
    }
}

void MainWindow::offerSettingsFiles()
{
    for (QAction* action : {m_saveSettings, m_loadSettings}) {
        action->setEnabled(m_active && m_active->device().isConnected());
    }
}

void MainWindow::saveSettings()
{
    CameraDevice& device = m_active->device();
    const QString path = QFileDialog::getSaveFileName(
        this, tr("Save the settings of %1").arg(device.serial()),
        QStringLiteral("%1/%2.json").arg(m_options.folder, device.serial()),
        tr("Settings (*.json);;All files (*)"));
    if (!path.isEmpty()) {
        device.saveSettings(path);
    }
}

void MainWindow::loadSettings()
{
    CameraDevice& device = m_active->device();
    const QString path =
        QFileDialog::getOpenFileName(this, tr("Load settings into %1").arg(device.serial()),
                                     m_options.folder, tr("Settings (*.json);;All files (*)"));
    if (!path.isEmpty()) {
        device.loadSettings(path);
    }
}

void MainWindow::startVirtual()
{
    const QString failure = m_options.startVirtual();
    if (failure.isEmpty()) {
        note(EventLog::Tone::Information, tr("A second window opens on a virtual camera."));
    } else {
        note(EventLog::Tone::Fault, tr("No virtual camera: %1").arg(failure));
    }
}

bool MainWindow::hasRoomForControls() const
{
    return width() >= m_area->minimumSizeHint().width() + m_side->minimumSizeHint().width();
}

/// Where there is not room for both, the images come before the controls.
void MainWindow::makeRoom()
{
    const bool isDocked = m_adjust->isVisible() && !m_adjust->isFloating();
    if (isDocked && !hasRoomForControls()) {
        m_adjust->hide();
        m_controlsGaveWay = true;
    } else if (m_controlsGaveWay && hasRoomForControls()) {
        m_adjust->show();
        m_controlsGaveWay = false;
    }
}

bool MainWindow::restoreLayout()
{
    return zrnview::restoreLayout(*this);
}

void MainWindow::rememberLayout()
{
    if (m_controlsGaveWay) {
        m_adjust->show(); // as it is to be where there is room
    }
    zrnview::rememberLayout(*this);
}

void MainWindow::fitInto(const QRect& available)
{
    // The frame is not known before the window is shown.
    const QSize title(0, style()->pixelMetric(QStyle::PM_TitleBarHeight));
    QRect place(pos(), size() + title);
    if (isMaximized() || isFullScreen() || available.contains(place)) {
        return;
    }
    place.setSize(place.size().boundedTo(available.size()));
    place.moveRight(std::min(place.right(), available.right()));
    place.moveBottom(std::min(place.bottom(), available.bottom()));
    place.moveLeft(std::max(place.left(), available.left()));
    place.moveTop(std::max(place.top(), available.top()));
    resize(place.size() - title);
    move(place.topLeft());
}

void MainWindow::resizeEvent(QResizeEvent* event)
{
    QMainWindow::resizeEvent(event);
    makeRoom();
}

void MainWindow::setGraphsWanted(bool wanted)
{
    m_graphs->setChecked(wanted);
    for (CameraPanel* panel : m_panels) {
        panel->frames().setGraphsWanted(wanted);
    }
    for (PlaybackPanel* panel : m_recordings) {
        panel->frames().setGraphsWanted(wanted);
    }
}

void MainWindow::setFullScreen(bool full)
{
    setWindowState(full ? windowState() | Qt::WindowFullScreen
                        : windowState() & ~Qt::WindowFullScreen);
}

void MainWindow::changeEvent(QEvent* event)
{
    QMainWindow::changeEvent(event);
    if (event->type() == QEvent::WindowStateChange) {
        m_fullScreen->setChecked(isFullScreen());
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
