#pragma once

#include "virtual_camera.h"
#include "zrnview/device/bench.h"
#include "zrnview/device/camera_device.h"
#include "zrnview/widgets/camera_panel.h"
#include "zrnview/widgets/frame_panel.h"
#include "zrnview/widgets/main_window.h"
#include "zrnview/widgets/side_panel.h"

#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

namespace zrnview
{

inline constexpr int patience = 60000; // milliseconds, for a machine that is busy with other things

/// The viewer's window as main() makes it.
class LiveWindow
{
public:
    explicit LiveWindow(int cameras)
        : bench([] { return zrn::Driver::load(ZRN_PLUGIN_PATH); })
        , window(bench, options(cameras))
    {
        QSettings().clear();
        window.resize(1600, 940);
        window.show();
        bench.start();
    }

    bool waitForStreams(std::size_t count)
    {
        return QTest::qWaitFor(
            [&] {
                return window.panels().size() == count &&
                       std::all_of(
                           window.panels().begin(), window.panels().end(), [](CameraPanel* panel) {
                               return panel->device().health().state == CameraState::Streaming &&
                                      panel->frames().display() != nullptr;
                           });
            },
            patience);
    }

    /// The panel of a virtual camera.
    CameraPanel& panelOf(VirtualCamera& camera)
    {
        const QString serial = QString::fromStdString(camera.serial());
        const auto found = std::find_if(
            window.panels().begin(), window.panels().end(),
            [&serial](CameraPanel* panel) { return panel->device().serial() == serial; });
        if (found == window.panels().end()) {
            qFatal("no panel shows %s", qPrintable(serial));
        }
        window.activate(**found);
        return **found;
    }

    QString folder() const { return m_folder.path(); }

private:
    WindowOptions options(int cameras) const
    {
        WindowOptions wanted;
        wanted.camerasToShow = cameras;
        wanted.folder = m_folder.path();
        return wanted;
    }

    QTemporaryDir m_folder;

public:
    Bench bench;
    MainWindow window;
};

} // namespace zrnview
