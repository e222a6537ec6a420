#pragma once

#include "model/usb.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace zrnsim
{

/// The UVC controls of the camera. What the firmware carries on each is said in controlTable.
enum class ControlId : std::uint8_t {
    AutoExposureMode,
    BacklightCompensation,
    Brightness,
    Contrast,
    Gain,
    Hue,
    Saturation,
    Sharpness,
    Gamma,
};
inline constexpr std::size_t controlCount = 9;

/// Where a control lives in the UVC function and how its value travels.
struct ControlTraits {
    ControlId id;
    std::string_view name;
    std::uint8_t entity;        ///< terminal or unit id
    std::uint8_t selector;      ///< control selector
    std::uint8_t length;        ///< bytes on the wire
    bool isSigned;              ///< two's complement on the wire
    bool isWritable;            ///< whether SET_CUR is offered
    std::uint8_t descriptorBit; ///< bit in the entity's bmControls
    std::string_view carries;   ///< what the firmware uses it for
};

inline constexpr std::array<ControlTraits, controlCount> controlTable{{
    {ControlId::AutoExposureMode, "ae-mode", topology::cameraTerminal, 0x02, 1, false, true, 1,
     "exposure mode, always manual"},
    {ControlId::BacklightCompensation, "backlight", topology::processingUnit, 0x01, 2, false, false,
     8, "64-bit serial: CUR, MIN, MAX and DEF from the lowest word to the highest"},
    {ControlId::Brightness, "brightness", topology::processingUnit, 0x02, 2, true, true, 0,
     "exposure time in device units"},
    {ControlId::Contrast, "contrast", topology::processingUnit, 0x03, 2, false, true, 1,
     "sensor type; a write resets exposure, gain and colour gains"},
    {ControlId::Gain, "gain", topology::processingUnit, 0x04, 2, false, true, 9, "analogue gain"},
    {ControlId::Hue, "hue", topology::processingUnit, 0x06, 2, true, true, 2,
     "GB gain in the low byte"},
    {ControlId::Saturation, "saturation", topology::processingUnit, 0x07, 2, false, true, 3,
     "B gain in the low byte"},
    {ControlId::Sharpness, "sharpness", topology::processingUnit, 0x08, 2, false, true, 4,
     "GR gain in the low byte"},
    {ControlId::Gamma, "gamma", topology::processingUnit, 0x09, 2, false, true, 5,
     "R gain in the low byte"},
}};

/// Traits of one control.
constexpr const ControlTraits& traitsOf(ControlId id)
{
    return controlTable[static_cast<std::size_t>(id)];
}

/// Finds a control by the address that a class request carries.
const ControlTraits* findControl(std::uint8_t entity, std::uint8_t selector);

/// Finds a control by its name in controlTable.
const ControlTraits* findControl(std::string_view name);

/// The five values that UVC keeps for a control.
struct ControlValues {
    std::int32_t cur = 0;
    std::int32_t min = 0;
    std::int32_t max = 0;
    std::int32_t res = 1;
    std::int32_t def = 0;
};

/// State of all controls. Not synchronised.
class ControlSet
{
public:
    ControlValues& operator[](ControlId id) { return m_values[static_cast<std::size_t>(id)]; }
    const ControlValues& operator[](ControlId id) const
    {
        return m_values[static_cast<std::size_t>(id)];
    }

    /// Puts the 64-bit serial on its carrier.
    void setSerial(std::uint64_t serial);

    /// Puts the sensor type on its carrier.
    void setSensorType(int sensorType);

    /// Answer to a GET request; nothing when the request is not one of UVC's.
    std::optional<Bytes> get(const ControlTraits& traits, std::uint8_t request) const;

    /// Carries out SET_CUR with the value's bytes.
    uvc::RequestError set(const ControlTraits& traits, ByteView data);

    /// Exposure, gain and colour gains back to their defaults.
    void reset();

private:
    std::array<ControlValues, controlCount> m_values{};
};

} // namespace zrnsim
