#include "zrnview/device/bench.h"
#include "zrnview/device/camera_device.h"
#include "zrnview/widgets/camera_panel.h"
#include "zrnview/widgets/frame_panel.h"
#include "zrnview/widgets/main_window.h"
#include "zrnview/widgets/pane_area.h"
#include "zrnview/widgets/playback_panel.h"
#include "zrnview/widgets/preferences.h"
#include "zrnview/widgets/record_options.h"

#include <QActionGroup>
#include <QApplication>
#include <QDockWidget>
#include <QMenuBar>
#include <QMessageBox>

#include <algorithm>

namespace zrnview
{
namespace
{

constexpr double textStep = 1.15;
constexpr double smallestPoints = 6;
constexpr double largestPoints = 32;

} // namespace

void MainWindow::buildMenus()
{
    buildFileMenu();
    buildCameraMenu();
    buildViewMenu();
    QMenu* help = menuBar()->addMenu(tr("&Help"));
    help->addAction(tr("&About zrnview"), this, [this] {
        QMessageBox::about(this, tr("About zrnview"),
                           tr("<b>zrnview</b> shows and adjusts ZRN USB cameras.<br>%1")
                               .arg(m_bench.description().toHtmlEscaped()));
    });
}

void MainWindow::buildFileMenu()
{
    QMenu* menu = menuBar()->addMenu(tr("&File"));
    menu->addAction(tr("&Open recording…"), this, &MainWindow::chooseRecording, QKeySequence::Open);
    menu->addSeparator();
    m_saveSettings =
        menu->addAction(tr("&Save the camera's settings…"), this, &MainWindow::saveSettings);
    m_loadSettings =
        menu->addAction(tr("&Load settings into the camera…"), this, &MainWindow::loadSettings);
    offerSettingsFiles();
    menu->addSeparator();
    menu->addAction(tr("&Folder for pictures and recordings…"), this, &MainWindow::chooseFolder);
    menu->addSeparator();
    menu->addAction(tr("&Quit"), this, &QWidget::close, QKeySequence::Quit);
}

void MainWindow::buildCameraMenu()
{
    QMenu* menu = menuBar()->addMenu(tr("&Camera"));
    menu->addAction(tr("Look &again"), &m_bench, &Bench::lookAgain, Qt::Key_F5);
    menu->addSeparator();
    menu->addAction(tr("Start or stop the &stream, play or pause"), this, &MainWindow::toggleStream,
                    tr("Ctrl+Space"));
    menu->addAction(tr("S&napshot"), this, &MainWindow::takeSnapshot, QKeySequence::Save);
    menu->addAction(tr("Start or stop &recording"), this, &MainWindow::toggleRecording,
                    tr("Ctrl+R"));
    menu->addAction(tr("&Trigger"), &m_bench, &Bench::trigger, tr("Ctrl+T"));
    menu->addAction(tr("How to re&cord…"), m_recordOptions, &QDialog::show);
}

void MainWindow::buildViewMenu()
{
    QMenu* menu = menuBar()->addMenu(tr("&View"));
    const auto addMode = [this, menu](const QString& text, const QString& key, ViewMode mode) {
        menu->addAction(
            text, this,
            [this, mode] {
                if (FramePanel* frames = activeFrames()) {
                    frames->panes().setMode(mode);
                }
            },
            key);
    };
    addMode(tr("Image &A"), tr("Ctrl+1"), ViewMode::A);
    addMode(tr("Image &B"), tr("Ctrl+2"), ViewMode::B);
    addMode(tr("&Side by side"), tr("Ctrl+3"), ViewMode::SideBySide);
    addMode(tr("&Difference"), tr("Ctrl+4"), ViewMode::Difference);
    addMode(tr("B&link"), tr("Ctrl+5"), ViewMode::Blink);
    menu->addAction(
        tr("Mark or show &clipped pixels"), this,
        [this] {
            if (FramePanel* frames = activeFrames()) {
                frames->panes().setMarkClipped(!frames->panes().marksClipped());
            }
        },
        tr("Ctrl+M"));
    menu->addSeparator();
    menu->addAction(tr("&Next camera"), this, &MainWindow::activateNext, tr("Ctrl+Tab"));
    menu->addSeparator();

    m_fullScreen = menu->addAction(tr("&Full screen"), this, &MainWindow::setFullScreen,
                                   QKeySequence(Qt::Key_F11));
    m_fullScreen->setCheckable(true);
    m_graphs = menu->addAction(tr("&Histograms and plots"), this, &MainWindow::setGraphsWanted,
                               QKeySequence(tr("Ctrl+H")));
    m_graphs->setCheckable(true);
    m_graphs->setChecked(true);
    m_cameras->toggleViewAction()->setText(tr("List of &cameras"));
    m_cameras->toggleViewAction()->setShortcut(Qt::Key_F8);
    menu->addAction(m_cameras->toggleViewAction());
    m_adjust->toggleViewAction()->setText(tr("Co&ntrols"));
    m_adjust->toggleViewAction()->setShortcut(Qt::Key_F9);
    menu->addAction(m_adjust->toggleViewAction());
    menu->addSeparator();

    auto* themes = new QActionGroup(this);
    const auto addTheme = [this, menu, themes](const QString& text, Theme theme) {
        QAction* action = menu->addAction(text, [theme] {
            applyTheme(theme);
            rememberTheme(theme);
        });
        action->setCheckable(true);
        action->setChecked(theme == m_options.theme);
        themes->addAction(action);
    };
    addTheme(tr("Colours of the s&ystem"), Theme::System);
    addTheme(tr("Ligh&t"), Theme::Light);
    addTheme(tr("Dar&k"), Theme::Dark);
    menu->addSeparator();
    menu->addAction(
        tr("La&rger text"), this, [this] { scaleText(textStep); }, QKeySequence::ZoomIn);
    menu->addAction(
        tr("S&maller text"), this, [this] { scaleText(1 / textStep); }, QKeySequence::ZoomOut);
}

void MainWindow::scaleText(double factor)
{
    QFont font = QApplication::font();
    font.setPointSizeF(std::clamp(font.pointSizeF() * factor, smallestPoints, largestPoints));
    QApplication::setFont(font);
}

} // namespace zrnview
