#pragma once

#include "zrnview/device/camera_reports.h"

namespace zrnview
{

/// Writes one setting through the method or property that carries it.
ErrorCode writeSetting(zrn::Camera& camera, Setting setting, qint64 value);

/// Reads one setting.
SettingReading readSetting(zrn::Camera& camera, Setting setting);

/// Writes, then reads it and every setting that the write touches. @return the written one first
SettingReadings writeAndReadBack(zrn::Camera& camera, Setting setting, qint64 value);

/// Reads every setting, in the order of the enumeration.
SettingReadings readAllSettings(zrn::Camera& camera);

/// Reads every property that the driver answers, in the order of the table.
PropertyReadings readAllProperties(zrn::Camera& camera);

/// Writes one property.
ErrorCode writeProperty(zrn::Camera& camera, const char* key, const zrn::Value& value);

/// Resets the camera's state.
ErrorCode resetState(zrn::Camera& camera);

/// Drops the frames that the driver keeps.
ErrorCode discardCached(zrn::Camera& camera);

/// Reads what does not change.
CameraFacts readFacts(zrn::Camera& camera);

} // namespace zrnview
