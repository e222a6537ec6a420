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

/// QMenu takes these in another order in each Qt.
template <typename Receiver, typename Slot>
QAction* addShortcut(QMenu* menu, const QString& text, const QKeySequence& shortcut,
                     Receiver* receiver, Slot slot)
{
    QAction* action = menu->addAction(text, receiver, slot);
    action->setShortcut(shortcut);
    return action;
}

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
    addShortcut(menu, tr("&Open recording…"), QKeySequence::Open, this,
                &MainWindow::chooseRecording);
    menu->addSeparator();
    m_saveSettings =
        menu->addAction(tr("&Save the camera's settings…"), this, &MainWindow::saveSettings);
    m_loadSettings =
        menu->addAction(tr("&Load settings into the camera…"), this, &MainWindow::loadSettings);
    offerSettingsFiles();
    menu->addSeparator();
    menu->addAction(tr("&Folder for pictures and recordings…"), this, &MainWindow::chooseFolder);
    menu->addSeparator();
    addShortcut(menu, tr("&Quit"), QKeySequence::Quit, this, &QWidget::close);
}

void MainWindow::buildCameraMenu()
{
    QMenu* menu = menuBar()->addMenu(tr("&Camera"));
    addShortcut(menu, tr("Look &again"), Qt::Key_F5, &m_bench, &Bench::lookAgain);
    menu->addSeparator();
    addShortcut(menu, tr("Start or stop the &stream, play or pause"), tr("Ctrl+Space"), this,
                &MainWindow::toggleStream);
    addShortcut(menu, tr("S&napshot"), QKeySequence::Save, this, &MainWindow::takeSnapshot);
    addShortcut(menu, tr("Start or stop &recording"), tr("Ctrl+R"), this,
                &MainWindow::toggleRecording);
    addShortcut(menu, tr("&Trigger"), tr("Ctrl+T"), &m_bench, &Bench::trigger);
    menu->addAction(tr("How to re&cord…"), m_recordOptions, &QDialog::show);
}

void MainWindow::buildViewMenu()
{
    QMenu* menu = menuBar()->addMenu(tr("&View"));
    const auto addMode = [this, menu](const QString& text, const QString& key, ViewMode mode) {
        addShortcut(menu, text, key, this, [this, mode] {
            if (FramePanel* frames = activeFrames()) {
                frames->panes().setMode(mode);
            }
        });
    };
    addMode(tr("Image &A"), tr("Ctrl+1"), ViewMode::A);
    addMode(tr("Image &B"), tr("Ctrl+2"), ViewMode::B);
    addMode(tr("&Side by side"), tr("Ctrl+3"), ViewMode::SideBySide);
    addMode(tr("&Difference"), tr("Ctrl+4"), ViewMode::Difference);
    addMode(tr("B&link"), tr("Ctrl+5"), ViewMode::Blink);
    addShortcut(menu, tr("Mark or show &clipped pixels"), tr("Ctrl+M"), this, [this] {
        if (FramePanel* frames = activeFrames()) {
            frames->panes().setMarkClipped(!frames->panes().marksClipped());
        }
    });
    menu->addSeparator();
    addShortcut(menu, tr("&Next camera"), tr("Ctrl+Tab"), this, &MainWindow::activateNext);
    menu->addSeparator();

    m_fullScreen =
        addShortcut(menu, tr("&Full screen"), Qt::Key_F11, this, &MainWindow::setFullScreen);
    m_fullScreen->setCheckable(true);
    m_graphs = addShortcut(menu, tr("&Histograms and plots"), tr("Ctrl+H"), this,
                           &MainWindow::setGraphsWanted);
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
    addShortcut(menu, tr("La&rger text"), QKeySequence::ZoomIn, this,
                [this] { scaleText(textStep); });
    addShortcut(menu, tr("S&maller text"), QKeySequence::ZoomOut, this,
                [this] { scaleText(1 / textStep); });
}

void MainWindow::scaleText(double factor)
{
    QFont font = QApplication::font();
    font.setPointSizeF(std::clamp(font.pointSizeF() * factor, smallestPoints, largestPoints));
    QApplication::setFont(font);
}

} // namespace zrnview
