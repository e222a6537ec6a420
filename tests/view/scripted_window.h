#pragma once

#include "scripted_driver.h"
#include "zrnview/device/bench.h"
#include "zrnview/device/camera_device.h"
#include "zrnview/widgets/camera_panel.h"
#include "zrnview/widgets/controls_panel.h"
#include "zrnview/widgets/frame_panel.h"
#include "zrnview/widgets/main_window.h"
#include "zrnview/widgets/side_panel.h"

#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>

namespace zrnview
{

inline constexpr int patience = 30000; // milliseconds, for a machine that is busy with other things

using Devices = ScriptedFactory::Devices;

inline Devices makeDevices(int count)
{
    Devices devices;
    for (int i = 1; i <= count; ++i) {
        devices.push_back(std::make_shared<ScriptedDevice>(QStringLiteral("ZR%1").arg(i)));
    }
    return devices;
}

/// A window on scripted cameras that stream.
class TestWindow
{
public:
    explicit TestWindow(Devices devices, bool start = true)
        : m_devices(std::move(devices))
        , bench([this] { return ScriptedFactory::driverFor(m_devices); })
        , window(bench, options(start))
    {
        window.resize(1400, 900);
        window.show();
        bench.start();
    }

    bool waitForState(CameraState state)
    {
        return QTest::qWaitFor(
            [&] {
                return window.panels().size() == m_devices.size() &&
                       std::all_of(window.panels().begin(), window.panels().end(),
                                   [state](CameraPanel* panel) {
                                       return panel->device().health().state == state;
                                   });
            },
            patience);
    }

    bool waitForImage()
    {
        return QTest::qWaitFor([&] { return panel().frames().display() != nullptr; }, patience);
    }

    CameraPanel& panel(std::size_t index = 0) { return *window.panels().at(index); }
    ControlRow& row(Setting setting) { return window.side().controls()->row(setting); }
    QString folder() const { return m_folder.path(); }

private:
    WindowOptions options(bool start) const
    {
        WindowOptions wanted;
        wanted.camerasToShow = static_cast<int>(m_devices.size());
        wanted.startStreams = start;
        wanted.folder = m_folder.path();
        return wanted;
    }

    Devices m_devices;
    QTemporaryDir m_folder;

public:
    Bench bench;
    MainWindow window;
};

inline void type(QSpinBox& field, int value)
{
    field.setFocus();
    field.selectAll();
    QTest::keyClicks(&field, QString::number(value));
    QTest::keyClick(&field, Qt::Key_Return);
}

} // namespace zrnview
