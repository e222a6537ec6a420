#include "zrnview/device/camera_reports.h"

#include <QDateTime>

namespace zrnview
{

QJsonObject metadataOf(const zrn::CameraFacts& facts, const SettingValues& values)
{
    QJsonObject settings;
    for (const auto& [setting, value] : values) {
        settings[QString::fromUtf8(infoOf(setting).label)] = static_cast<double>(value);
    }
    return {{QStringLiteral("serial"), QString::fromStdString(facts.serial)},
            {QStringLiteral("time"), QDateTime::currentDateTime().toString(Qt::ISODateWithMs)},
            {QStringLiteral("width"), static_cast<int>(facts.width)},
            {QStringLiteral("height"), static_cast<int>(facts.height)},
            {QStringLiteral("sensors"), facts.sensorCount},
            {QStringLiteral("settings"), settings}};
}

void registerReportTypes()
{
    qRegisterMetaType<CameraFacts>();
    qRegisterMetaType<SettingReadings>();
    qRegisterMetaType<PropertyReadings>();
    qRegisterMetaType<CameraHealth>();
    qRegisterMetaType<ErrorCode>();
}

} // namespace zrnview
