#include "zrnview/device/setting_access.h"

namespace zrnview
{
namespace
{

using CameraSpace::TriggerMode;

void write(zrn::Camera& camera, Setting setting, qint64 value)
{
    switch (setting) {
    case Setting::Exposure:
        camera.setExposure(std::chrono::microseconds(value));
        return;
    case Setting::Gain:
        camera.setGain(static_cast<std::uint32_t>(value));
        return;
    case Setting::TriggerOrder:
        camera.setOrder(static_cast<TriggerMode>(value) == TriggerMode::Newest
                            ? zrn::FrameOrder::Newest
                            : zrn::FrameOrder::Oldest);
        return;
    default:
        break;
    }
    const SettingInfo& info = infoOf(setting);
    camera.setProperty(info.key,
                       info.isFlag ? zrn::Value(value != 0) : zrn::Value(static_cast<int>(value)));
}

qint64 read(zrn::Camera& camera, Setting setting)
{
    switch (setting) {
    case Setting::Exposure:
        return camera.exposure().count();
    case Setting::Gain:
        return camera.gain();
    case Setting::TriggerOrder:
        return static_cast<qint64>(camera.order() == zrn::FrameOrder::Newest ? TriggerMode::Newest
                                                                             : TriggerMode::Oldest);
    default:
        return static_cast<qint64>(zrn::numberOf(camera.property(infoOf(setting).key)));
    }
}

} // namespace

SettingReading readSetting(zrn::Camera& camera, Setting setting)
{
    SettingReading reading;
    reading.setting = setting;
    reading.readCode = codeOf([&] { reading.value = read(camera, setting); });
    return reading;
}

SettingReadings writeAndReadBack(zrn::Camera& camera, Setting setting, qint64 value)
{
    const ErrorCode writeCode = codeOf([&] { write(camera, setting, value); });
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

SettingReadings readAllSettings(zrn::Camera& camera)
{
    SettingReadings readings;
    for (const SettingInfo& info : settings()) {
        readings.push_back(readSetting(camera, info.setting));
    }
    return readings;
}

PropertyReadings readAllProperties(zrn::Camera& camera)
{
    PropertyReadings readings;
    for (const zrn::PropertyInfo& info : zrn::Camera::properties()) {
        PropertyReading reading{info.key, ErrorCode::Success, {}};
        reading.code = codeOf([&] { reading.value = camera.property(info.key); });
        readings.push_back(reading);
    }
    return readings;
}

CameraFacts readFacts(zrn::Camera& camera)
{
    CameraFacts facts{camera.facts(), {}, ErrorCode::Success, {}};
    facts.exposureRangeCode = codeOf([&] { facts.exposure = camera.exposureRange(); });
    codeOf([&] { facts.gain = camera.gainRange(); });
    return facts;
}

} // namespace zrnview
