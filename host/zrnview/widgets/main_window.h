#pragma once

#include "client/doctor.h"
#include "zrnview/widgets/event_log.h"
#include "zrnview/widgets/first_page.h"
#include "zrnview/widgets/snapshot.h"
#include "zrnview/widgets/theme.h"

#include <QMainWindow>

#include <functional>
#include <vector>

class QAction;
class QDockWidget;
class QGridLayout;

namespace zrnview
{

class Bench;
class CameraDevice;
class CameraList;
class CameraPanel;
class FramePanel;
class PlaybackPanel;
class RecordOptions;
class SidePanel;

/// What the window does on its own after it was opened.
struct WindowOptions {
    int camerasToShow = 1; ///< of those that are free
    bool startStreams = true;
    QString folder;              ///< where pictures and recordings go
    Theme theme = Theme::System; ///< that was applied
    bool printDriverLog = false; ///< on standard error
    /// Finds out why cameras cannot be used.
    FirstPage::Examination examine = [] { return zrn::examine(); };
    /// Starts the viewer on a virtual camera. @return why it could not be started; empty if it was
    std::function<QString()> startVirtual = {};
};

/// The viewer's window: cameras and recordings side by side, the controls of the active one beside
/// them.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    /// @param bench outlives the window
    MainWindow(Bench& bench, const WindowOptions& options);

    const std::vector<CameraPanel*>& panels() const { return m_panels; }
    const std::vector<PlaybackPanel*>& recordings() const { return m_recordings; }
    CameraPanel* activePanel() const { return m_active; }
    CameraList& cameraList() { return *m_cameraList; }
    FirstPage& firstPage() { return *m_empty; }
    SidePanel& side() { return *m_side; }
    RecordOptions& recordOptions() { return *m_recordOptions; }
    EventLog& events();

    CameraPanel& showCamera(CameraDevice& device);
    void hideCamera(CameraDevice& device);
    PlaybackPanel& openRecording(const QString& path);
    void closeRecording(PlaybackPanel& panel);
    void activate(QWidget& panel);
    void setFolder(const QString& folder) { m_options.folder = folder; }
    void setGraphsWanted(bool wanted);
    void setFullScreen(bool full);
    /// Place, size and docks as in the last run. @return whether they are known
    bool restoreLayout();
    void rememberLayout();
    /// Shrinks and moves the window so that none of it is outside.
    void fitInto(const QRect& available);

protected:
    void changeEvent(QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void buildMenus();
    void buildFileMenu();
    void buildCameraMenu();
    void buildViewMenu();
    void buildSide();
    void arrange();
    bool hasRoomForControls() const;
    void makeRoom();
    void updateEmpty();
    void welcome(CameraDevice& device, bool isAskedFor);
    void activateNext();
    void showControlsOf(CameraDevice* device);
    FramePanel* activeFrames() const;
    void takeSnapshot();
    void toggleRecording();
    void toggleStream();
    void chooseRecording();
    void chooseFolder();
    void offerSettingsFiles();
    void saveSettings();
    void loadSettings();
    void startVirtual();
    void note(EventLog::Tone tone, const QString& text);
    void scaleText(double factor);

    Bench& m_bench;
    WindowOptions m_options;
    Snapshots m_snapshots;
    std::vector<CameraPanel*> m_panels;
    std::vector<PlaybackPanel*> m_recordings;
    CameraPanel* m_active = nullptr;
    PlaybackPanel* m_activeRecording = nullptr;
    int m_welcomed = 0;
    QWidget* m_area;
    QGridLayout* m_grid;
    FirstPage* m_empty;
    CameraList* m_cameraList;
    SidePanel* m_side;
    RecordOptions* m_recordOptions;
    QDockWidget* m_cameras = nullptr;
    QDockWidget* m_adjust = nullptr; // holds the side panel, named after its camera
    bool m_controlsGaveWay = false;  // the dock is hidden for want of room
    QAction* m_saveSettings = nullptr;
    QAction* m_loadSettings = nullptr;
    QAction* m_fullScreen = nullptr;
    QAction* m_graphs = nullptr;
};

} // namespace zrnview
