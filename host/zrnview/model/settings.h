#pragma once

#include <QString>

#include <span>
#include <vector>

namespace zrnview
{

/// What an operator can set on a camera.
enum class Setting {
    Exposure,
    Gain,
    RGain,
    GrGain,
    GbGain,
    BGain,
    Gamma,
    Sharpness,
    Hue,
    TriggerOrder,
    CacheFrames,
    GrabTimeout,
    ExposureCheck,
    GainCheck,
};

/// How a setting is shown and how it travels.
struct SettingInfo {
    Setting setting;
    const char* label;
    const char* unit;
    const char* key; ///< property that carries it; null where the camera interface has a method
    qint64 minimum;  ///< of what may be sent; the camera may accept less
    qint64 maximum;
    qint64 usualMaximum; ///< where a slider ends
    bool isFlag;
    const char* carrier; ///< UVC control of the camera that holds it; empty: kept by the driver
    const char* tip;
};

/// Every setting, in the order of the enumeration. Thread safety: reentrant, as all of this header.
std::span<const SettingInfo> settings();
const SettingInfo& infoOf(Setting setting);

/// A UVC control that the camera's firmware uses as the carrier of a colour gain, and often of
/// another setting.
struct CarrierRow {
    const char* name;
    Setting colourGain; ///< which colour gain lies in it
    bool hasDirect;     ///< whether a setting of its own reaches it as well
    Setting direct;     ///< that setting
};

std::span<const CarrierRow> carriers();

/// The setting's own carrier, or null for one that shares nothing.
const CarrierRow* carrierOf(Setting setting);

/// What writing one setting does to others.
struct Effects {
    std::vector<Setting> changed;   ///< takes the written value too: it lies in the same carrier
    std::vector<Setting> rewritten; ///< sent again with the value that was read just before
};

Effects effectsOf(Setting written);

/// One sentence on what writing @p setting does to others; empty when it touches nothing else.
QString describeEffects(Setting written);

/// Position on a logarithmic slider. @param value from minimum to maximum, both above 0
/// @return from 0 to steps
int logarithmicPosition(double value, double minimum, double maximum, int steps);
/// The value at a position, such that every position's value maps back to that position.
double logarithmicValue(int position, double minimum, double maximum, int steps);

} // namespace zrnview
