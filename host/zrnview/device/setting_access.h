#pragma once

#include "zrnview/device/camera_reports.h"

namespace zrnview
{

/// The answer that an operation of the library threw, if it threw one.
template <typename Operation>
ErrorCode codeOf(const Operation& operation)
{
    try {
        operation();
        return ErrorCode::Success;
    } catch (const zrn::Error& error) {
        return error.code();
    }
}

/// Reads one setting.
SettingReading readSetting(zrn::Camera& camera, Setting setting);

/// Writes, then reads it and every setting that the write touches. @return the written one first
SettingReadings writeAndReadBack(zrn::Camera& camera, Setting setting, qint64 value);

/// Reads every setting, in the order of the enumeration.
SettingReadings readAllSettings(zrn::Camera& camera);

/// Reads every property that the driver answers, in the order of the table.
PropertyReadings readAllProperties(zrn::Camera& camera);

/// Reads what does not change.
CameraFacts readFacts(zrn::Camera& camera);

} // namespace zrnview
