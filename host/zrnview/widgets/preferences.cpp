#include "zrnview/widgets/preferences.h"

#include <QMainWindow>
#include <QSettings>

#include <array>

namespace zrnview
{
namespace
{

constexpr const char* themeKey = "theme";
constexpr const char* folderKey = "folder";
constexpr const char* geometryKey = "window/geometry";
constexpr const char* stateKey = "window/docks";
constexpr const char* modeKey = "view";
constexpr const char* amplificationKey = "amplification";
constexpr const char* clippingKey = "clipping";

constexpr std::array themeNames = {"system", "light", "dark"}; // as the enumeration
constexpr std::array modeNames = {"a", "b", "side-by-side", "difference", "blink"}; // likewise

/// The place of a remembered name in the table; nothing for one that is not in it.
template <std::size_t count>
std::optional<int> indexIn(const std::array<const char*, count>& names, const QVariant& remembered)
{
    for (std::size_t i = 0; i < count; ++i) {
        if (remembered.toString() == QLatin1String(names[i])) {
            return static_cast<int>(i);
        }
    }
    return std::nullopt;
}

QString keyOf(const QString& serial, const char* name)
{
    return QStringLiteral("cameras/%1/%2").arg(serial, QLatin1String(name));
}

QString keyOf(const QString& serial, Setting setting)
{
    const SettingInfo& info = infoOf(setting);
    return keyOf(serial, info.key ? info.key : info.label);
}

} // namespace

std::optional<Theme> rememberedTheme()
{
    const std::optional<int> index =
        indexIn(themeNames, QSettings().value(QLatin1String(themeKey)));
    return index ? std::optional(static_cast<Theme>(*index)) : std::nullopt;
}

void rememberTheme(Theme theme)
{
    QSettings().setValue(QLatin1String(themeKey),
                         QLatin1String(themeNames.at(static_cast<std::size_t>(theme))));
}

QString rememberedFolder()
{
    return QSettings().value(QLatin1String(folderKey)).toString();
}

void rememberFolder(const QString& folder)
{
    QSettings().setValue(QLatin1String(folderKey), folder);
}

bool restoreLayout(QMainWindow& window)
{
    const QSettings settings;
    const QByteArray geometry = settings.value(QLatin1String(geometryKey)).toByteArray();
    return window.restoreGeometry(geometry) &&
           window.restoreState(settings.value(QLatin1String(stateKey)).toByteArray());
}

void rememberLayout(const QMainWindow& window)
{
    QSettings settings;
    settings.setValue(QLatin1String(geometryKey), window.saveGeometry());
    settings.setValue(QLatin1String(stateKey), window.saveState());
}

void restoreLook(const QString& serial, PaneArea& panes)
{
    const QSettings settings;
    if (const auto mode = indexIn(modeNames, settings.value(keyOf(serial, modeKey)))) {
        panes.setMode(static_cast<ViewMode>(*mode));
    }
    const int factor = settings.value(keyOf(serial, amplificationKey)).toInt();
    if (factor > 0) {
        panes.setAmplification(factor);
    }
    panes.setMarkClipped(settings.value(keyOf(serial, clippingKey)).toBool());
}

void rememberLook(const QString& serial, const PaneArea& panes)
{
    QSettings settings;
    settings.setValue(keyOf(serial, modeKey),
                      QLatin1String(modeNames.at(static_cast<std::size_t>(panes.mode()))));
    if (panes.amplification() > 0) {
        settings.setValue(keyOf(serial, amplificationKey), panes.amplification());
    }
    settings.setValue(keyOf(serial, clippingKey), panes.marksClipped());
}

bool isKeptByDriver(Setting setting)
{
    return *infoOf(setting).carrier == '\0';
}

void restoreSettings(CameraDevice& device)
{
    const QSettings preferences;
    for (const SettingInfo& info : settings()) {
        const QVariant value = preferences.value(keyOf(device.serial(), info.setting));
        if (isKeptByDriver(info.setting) && value.canConvert<qint64>()) {
            device.set(info.setting, value.toLongLong());
        }
    }
}

void rememberSetting(const QString& serial, Setting setting, qint64 value)
{
    QSettings().setValue(keyOf(serial, setting), value);
}

} // namespace zrnview
