#pragma once

#include "zrnview/widgets/event_log.h"
#include "zrnview/widgets/snapshot.h"
#include "zrnview/widgets/theme.h"

#include <QMainWindow>

#include <vector>

class QDockWidget;
class QGridLayout;
class QLabel;

namespace zrnview
{

class Bench;
class CameraDevice;
class CameraList;
class CameraPanel;
class FramePanel;
class PlaybackPanel;
class SidePanel;

/// What the window does on its own after it was opened.
struct WindowOptions {
    int camerasToShow = 1; ///< of those that are free
    bool startStreams = true;
    QString folder;              ///< where pictures and recordings go
    Theme theme = Theme::System; ///< that was applied
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
    SidePanel& side() { return *m_side; }
    EventLog& events();

    CameraPanel& showCamera(CameraDevice& device);
    void hideCamera(CameraDevice& device);
    PlaybackPanel& openRecording(const QString& path);
    void closeRecording(PlaybackPanel& panel);
    void activate(QWidget& panel);
    void setFolder(const QString& folder) { m_options.folder = folder; }

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void buildMenus();
    void buildFileMenu();
    void buildCameraMenu();
    void buildViewMenu();
    void buildSide();
    void arrange();
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
    QLabel* m_empty;
    CameraList* m_cameraList;
    SidePanel* m_side;
    QDockWidget* m_adjust = nullptr; // holds the side panel, named after its camera
};

} // namespace zrnview
