#include "zrnview/device/setting_access.h"

#include "common/property_keys.h"
#include "common/property_table.h"

namespace zrnview
{
namespace
{

namespace keys = zrnhost::keys;
using CameraSpace::TriggerMode;

/// The driver keeps the frame order to itself, so that cameras without a trigger have one too.
ErrorCode acceptUnsupported(ErrorCode code)
{
    return code == ErrorCode::NotSupported ? ErrorCode::Success : code;
}

} // namespace

ErrorCode writeSetting(zrnhost::Camera& camera, Setting setting, qint64 value)
{
    switch (setting) {
    case Setting::Exposure:
        return camera->setExposureTime(static_cast<unsigned int>(value), 0);
    case Setting::Gain:
        return camera->setGain(static_cast<unsigned short>(value), 0);
    case Setting::TriggerOrder:
        return acceptUnsupported(camera->setTriggerMode(static_cast<TriggerMode>(value), 0));
    default:
        break;
    }
    const SettingInfo& info = infoOf(setting);
    return camera.writeProperty(info.key, info.isFlag ? QVariant(value != 0)
                                                      : QVariant(static_cast<int>(value)));
}

SettingReading readSetting(zrnhost::Camera& camera, Setting setting)
{
    SettingReading reading;
    reading.setting = setting;
    switch (setting) {
    case Setting::Exposure: {
        unsigned int value = 0;
        reading.readCode = camera->getExposureTime(value, 0);
        reading.value = value;
        return reading;
    }
    case Setting::Gain: {
        unsigned short value = 0;
        reading.readCode = camera->getGain(value, 0);
        reading.value = value;
        return reading;
    }
    case Setting::TriggerOrder: {
        auto value = TriggerMode::Oldest;
        reading.readCode = acceptUnsupported(camera->getTriggerMode(value, 0));
        reading.value = static_cast<qint64>(value);
        return reading;
    }
    default:
        break;
    }
    QVariant value;
    reading.readCode = camera.readProperty(infoOf(setting).key, value);
    reading.value = value.toLongLong();
    return reading;
}

SettingReadings writeAndReadBack(zrnhost::Camera& camera, Setting setting, qint64 value)
{
    const ErrorCode writeCode = writeSetting(camera, setting, value);
    SettingReadings readings{readSetting(camera, setting)};
    readings.front().written = true;
    readings.front().wanted = value;
    readings.front().writeCode = writeCode;
    const Effects effects = effectsOf(setting);
    for (const std::vector<Setting>& touched : {effects.changed, effects.rewritten}) {
        for (const Setting other : touched) {
            readings.push_back(readSetting(camera, other));
        }
    }
    return readings;
}

SettingReadings readAllSettings(zrnhost::Camera& camera)
{
    SettingReadings readings;
    for (const SettingInfo& info : settings()) {
        readings.push_back(readSetting(camera, info.setting));
    }
    return readings;
}

PropertyReadings readAllProperties(zrnhost::Camera& camera)
{
    PropertyReadings readings;
    for (const zrnhost::PropertyInfo& info : zrnhost::propertyTable) {
        PropertyReading reading{info.key, ErrorCode::Success, QVariant()};
        reading.code = camera.readProperty(info.key, reading.value);
        readings.push_back(reading);
    }
    return readings;
}

CameraFacts readFacts(zrnhost::Camera& camera, const QString& serial)
{
    CameraFacts facts;
    facts.serial = serial;
    camera->getMaxImageSize(facts.width, facts.height, 0);
    camera->getPixelFormat(facts.pixelFormat, 0);
    QVariant sensors;
    if (camera.readProperty(keys::sensorCount, sensors) == ErrorCode::Success) {
        facts.sensorCount = sensors.toInt();
    }
    facts.exposureRangeCode =
        camera->getExposureTimeRange(facts.exposureMinimum, facts.exposureMaximum, 0);
    camera->getGainRange(facts.gainMinimum, facts.gainMaximum, 0);
    return facts;
}

} // namespace zrnview
