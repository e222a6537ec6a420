#include "zrnview/model/settings.h"

#include "client/property_table.h"

#include <QCoreApplication>
#include <QStringList>

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

namespace zrnview
{
namespace
{

namespace keys = zrn::keys;

constexpr qint64 wordMaximum = 65535;

// Where sliders end.
constexpr qint64 byteMaximum = 255;
constexpr qint64 usualCache = 64;
constexpr qint64 usualTimeout = 5000;

/// A setting that travels as a property.
constexpr SettingInfo carried(Setting setting, const char* key, qint64 usualMaximum)
{
    const zrn::PropertyInfo& property = *zrn::findProperty(key);
    const bool isFlag = property.type == zrn::PropertyType::Bool;
    return {setting,      property.label,   property.unit,
            property.key, property.minimum, isFlag ? 1 : property.maximum,
            usualMaximum, isFlag,           property.carrier,
            property.tip};
}

constexpr std::array settingTable = {
    SettingInfo{Setting::Exposure, "Exposure", "µs", nullptr, 0, 4294967295, 1000000, false,
                "Brightness", "Exposure time; the camera rounds it to its own steps"},
    SettingInfo{Setting::Gain, "Gain", "", nullptr, 0, wordMaximum, byteMaximum, false, "Gain",
                "Gain, as the camera counts it"},
    carried(Setting::RGain, keys::rGain, byteMaximum),
    carried(Setting::GrGain, keys::grGain, byteMaximum),
    carried(Setting::GbGain, keys::gbGain, byteMaximum),
    carried(Setting::BGain, keys::bGain, byteMaximum),
    carried(Setting::Gamma, keys::gamma, byteMaximum),
    carried(Setting::Sharpness, keys::sharp, byteMaximum),
    carried(Setting::Hue, keys::hue, byteMaximum),
    SettingInfo{Setting::TriggerOrder, "Frame order", "", nullptr, 0, 2, 2, false, "",
                "Which cached frame a grab takes"},
    carried(Setting::CacheFrames, keys::cacheFrameCount, usualCache),
    carried(Setting::GrabTimeout, keys::maxGrabWaitTime, usualTimeout),
    carried(Setting::ExposureCheck, keys::enableCheckExposureTime, 1),
    carried(Setting::GainCheck, keys::enableCheckGain, 1),
};

constexpr std::array colourGains{Setting::RGain, Setting::GrGain, Setting::GbGain, Setting::BGain};

/// What shares the control that carries a colour gain.
constexpr CarrierRow carrierOfGain(Setting colourGain)
{
    const char* carrier = settingTable[static_cast<std::size_t>(colourGain)].carrier;
    for (const SettingInfo& info : settingTable) {
        if (info.setting != colourGain && std::string_view(info.carrier) == carrier) {
            return {carrier, colourGain, true, info.setting};
        }
    }
    return {carrier, colourGain, false, colourGain};
}

constexpr std::array carrierTable = [] {
    std::array<CarrierRow, colourGains.size()> table{};
    std::ranges::transform(colourGains, table.begin(), carrierOfGain);
    return table;
}();

QString listed(const std::vector<Setting>& settingsToName)
{
    QStringList names;
    for (const Setting setting : settingsToName) {
        names += QString::fromUtf8(infoOf(setting).label);
    }
    return names.join(QStringLiteral(", "));
}

} // namespace

std::span<const SettingInfo> settings()
{
    return settingTable;
}

const SettingInfo& infoOf(Setting setting)
{
    return settingTable.at(static_cast<std::size_t>(setting));
}

std::span<const CarrierRow> carriers()
{
    return carrierTable;
}

const CarrierRow* carrierOf(Setting setting)
{
    const auto* found =
        std::find_if(carrierTable.begin(), carrierTable.end(), [setting](const CarrierRow& row) {
            return row.colourGain == setting || (row.hasDirect && row.direct == setting);
        });
    return found == carrierTable.end() ? nullptr : &*found;
}

Effects effectsOf(Setting written)
{
    Effects effects;
    const CarrierRow* own = carrierOf(written);
    if (!own) {
        return effects;
    }
    const bool isColourGain = own->colourGain == written;
    for (const CarrierRow& row : carrierTable) {
        const bool isOwn = &row == own;
        // The four colour gains travel as one word, so that all carriers are written.
        if (!isOwn && !isColourGain) {
            continue;
        }
        std::vector<Setting>& list = isOwn ? effects.changed : effects.rewritten;
        if (row.colourGain != written) {
            list.push_back(row.colourGain);
        }
        if (row.hasDirect && row.direct != written) {
            list.push_back(row.direct);
        }
    }
    return effects;
}

QString describeEffects(Setting written)
{
    const Effects effects = effectsOf(written);
    QStringList parts;
    if (!effects.changed.empty()) {
        parts +=
            QCoreApplication::translate("Settings", "also changes %1").arg(listed(effects.changed));
    }
    if (!effects.rewritten.empty()) {
        parts += QCoreApplication::translate("Settings", "rewrites %1 with the values just read")
                     .arg(listed(effects.rewritten));
    }
    return parts.join(QStringLiteral("; "));
}

int logarithmicPosition(double value, double minimum, double maximum, int steps)
{
    if (maximum <= minimum) {
        return 0;
    }
    const double clamped = std::clamp(value, minimum, maximum);
    return static_cast<int>(
        std::lround(std::log(clamped / minimum) / std::log(maximum / minimum) * steps));
}

double logarithmicValue(int position, double minimum, double maximum, int steps)
{
    return minimum * std::pow(maximum / minimum, static_cast<double>(position) / steps);
}

} // namespace zrnview
