#pragma once

#include "zrnview/device/camera_reports.h"

namespace zrnview
{

/// Writes one setting through the method or property that carries it. A driver may store the frame
/// order and answer NotSupported all the same, which counts as success here.
ErrorCode writeSetting(zrnhost::Camera& camera, Setting setting, qint64 value);

/// Reads one setting.
SettingReading readSetting(zrnhost::Camera& camera, Setting setting);

/// Writes, then reads it and every setting that the write touches. @return the written one first
SettingReadings writeAndReadBack(zrnhost::Camera& camera, Setting setting, qint64 value);

/// Reads every setting, in the order of the enumeration.
SettingReadings readAllSettings(zrnhost::Camera& camera);

/// Reads every property that the driver answers, in the order of the table.
PropertyReadings readAllProperties(zrnhost::Camera& camera);

/// Reads what does not change. @param serial as the driver gives it
CameraFacts readFacts(zrnhost::Camera& camera, const QString& serial);

} // namespace zrnview
