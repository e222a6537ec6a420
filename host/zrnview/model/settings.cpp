#include "zrnview/model/settings.h"

#include "common/property_keys.h"

#include <QStringList>

#include <algorithm>
#include <array>
#include <cmath>

namespace zrnview
{
namespace
{

namespace keys = zrnhost::keys;

constexpr qint64 byteMaximum = 255;
constexpr qint64 wordMaximum = 65535;
constexpr qint64 signedMinimum = -32768;
constexpr qint64 signedMaximum = 32767;
constexpr qint64 intMaximum = 2147483647;
constexpr qint64 usualCache = 64;
constexpr qint64 usualTimeout = 5000;

constexpr std::array settingTable = {
    SettingInfo{Setting::Exposure, "Exposure", "µs", nullptr, 0, 4294967295, 1000000, false,
                "Exposure time; the camera rounds it to its own steps"},
    SettingInfo{Setting::Gain, "Gain", "", nullptr, 0, wordMaximum, byteMaximum, false,
                "Gain, as the camera counts it"},
    SettingInfo{Setting::RGain, "R gain", "", keys::rGain, 0, byteMaximum, byteMaximum, false,
                "Gain of the red cells; lies in the gamma control"},
    SettingInfo{Setting::GrGain, "GR gain", "", keys::grGain, 0, byteMaximum, byteMaximum, false,
                "Gain of the green cells in red rows; lies in the sharpness control"},
    SettingInfo{Setting::GbGain, "GB gain", "", keys::gbGain, 0, byteMaximum, byteMaximum, false,
                "Gain of the green cells in blue rows; lies in the hue control"},
    SettingInfo{Setting::BGain, "B gain", "", keys::bGain, 0, byteMaximum, byteMaximum, false,
                "Gain of the blue cells; lies in the saturation control"},
    SettingInfo{Setting::Gamma, "Gamma", "", keys::gamma, 0, wordMaximum, byteMaximum, false,
                "Gamma control; shared with the R gain"},
    SettingInfo{Setting::Sharpness, "Sharpness", "", keys::sharp, 0, wordMaximum, byteMaximum,
                false, "Sharpness control; shared with the GR gain"},
    SettingInfo{Setting::Hue, "Hue", "", keys::hue, signedMinimum, signedMaximum, byteMaximum,
                false, "Hue control; shared with the GB gain"},
    SettingInfo{Setting::TriggerOrder, "Frame order", "", nullptr, 0, 2, 2, false,
                "Which cached frame a grab takes"},
    SettingInfo{Setting::CacheFrames, "Cache", "frames", keys::cacheFrameCount, 1, intMaximum,
                usualCache, false,
                "Frames that the driver keeps; only while the stream is stopped"},
    SettingInfo{Setting::GrabTimeout, "Grab timeout", "ms", keys::maxGrabWaitTime, 0, intMaximum,
                usualTimeout, false, "How long a grab waits for a frame"},
    SettingInfo{Setting::ExposureCheck, "Verify exposure", "", keys::enableCheckExposureTime, 0, 1,
                1, true, "The driver reads the exposure back after writing it"},
    SettingInfo{Setting::GainCheck, "Verify gain", "", keys::enableCheckGain, 0, 1, 1, true,
                "The driver reads the gain back after writing it"},
};

constexpr std::array carrierTable = {
    CarrierRow{Carrier::Gamma, "Gamma", Setting::RGain, true, Setting::Gamma},
    CarrierRow{Carrier::Sharpness, "Sharpness", Setting::GrGain, true, Setting::Sharpness},
    CarrierRow{Carrier::Hue, "Hue", Setting::GbGain, true, Setting::Hue},
    CarrierRow{Carrier::Saturation, "Saturation", Setting::BGain, false, Setting::BGain},
};

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
        parts += QStringLiteral("also changes %1").arg(listed(effects.changed));
    }
    if (!effects.rewritten.empty()) {
        parts +=
            QStringLiteral("rewrites %1 with the values just read").arg(listed(effects.rewritten));
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
