#pragma once

#include "zrnview/device/camera_device.h"
#include "zrnview/widgets/pane_area.h"
#include "zrnview/widgets/theme.h"

#include <QString>

#include <optional>

class QMainWindow;

/// What the program remembers from one run to the next, in the file that QSettings has for the
/// application. What belongs to one camera is in the group cameras/SERIAL.
///
/// Thread safety: reentrant, as QSettings is.
namespace zrnview
{

/// Nothing where none was ever chosen.
std::optional<Theme> rememberedTheme();
void rememberTheme(Theme theme);

/// For pictures and recordings; empty where none was ever chosen.
QString rememberedFolder();
void rememberFolder(const QString& folder);

/// Place, size and docks of a window. @return whether there were any
bool restoreLayout(QMainWindow& window);
void rememberLayout(const QMainWindow& window);

/// How the pictures of a camera were looked at.
void restoreLook(const QString& serial, PaneArea& panes);
void rememberLook(const QString& serial, const PaneArea& panes);

/// Of a camera's settings those that the driver keeps, and forgets when it ends. The camera keeps
/// the others itself.
bool isKeptByDriver(Setting setting);
/// Asks for the settings that were chosen before.
void restoreSettings(CameraDevice& device);
void rememberSetting(const QString& serial, Setting setting, qint64 value);

} // namespace zrnview
