#include "model/controls.h"

#include "pictures/sensor_types.h"

#include <algorithm>

namespace zrnsim
{

namespace
{

constexpr std::array resettable{ControlId::Brightness, ControlId::Gain,      ControlId::Hue,
                                ControlId::Saturation, ControlId::Sharpness, ControlId::Gamma};

Bytes encode(std::int32_t value, std::uint8_t length)
{
    Bytes data;
    ByteWriter writer(data);
    if (length == 1) {
        writer.u8(static_cast<std::uint32_t>(value));
    } else {
        writer.u16(static_cast<std::uint32_t>(value));
    }
    return data;
}

std::int32_t decode(const ControlTraits& traits, ByteView data)
{
    const std::uint32_t raw = readLittleEndian(data, 0, traits.length);
    if (traits.isSigned) {
        return static_cast<std::int16_t>(raw);
    }
    return static_cast<std::int32_t>(raw);
}

std::int32_t word(std::uint64_t value, unsigned index)
{
    return static_cast<std::int32_t>((value >> (16 * index)) & 0xffffU);
}

} // namespace

const ControlTraits* findControl(std::uint8_t entity, std::uint8_t selector)
{
    const auto* found = std::find_if(controlTable.begin(), controlTable.end(), [&](const auto& c) {
        return c.entity == entity && c.selector == selector;
    });
    return found == controlTable.end() ? nullptr : found;
}

const ControlTraits* findControl(std::string_view name)
{
    const auto* found = std::find_if(controlTable.begin(), controlTable.end(),
                                     [&](const auto& c) { return c.name == name; });
    return found == controlTable.end() ? nullptr : found;
}

void ControlSet::setSerial(std::uint64_t serial)
{
    ControlValues& carrier = (*this)[ControlId::BacklightCompensation];
    carrier = {word(serial, 0), word(serial, 1), word(serial, 2), 1, word(serial, 3)};
}

void ControlSet::setSensorType(int sensorType)
{
    ControlValues& carrier = (*this)[ControlId::Contrast];
    carrier = {sensorType, 0, std::max(sensorType, sensorTypes.back().number), 1, sensorType};
}

std::optional<Bytes> ControlSet::get(const ControlTraits& traits, std::uint8_t request) const
{
    const ControlValues& values = (*this)[traits.id];
    switch (request) {
    case uvc::getCur:
        return encode(values.cur, traits.length);
    case uvc::getMin:
        return encode(values.min, traits.length);
    case uvc::getMax:
        return encode(values.max, traits.length);
    case uvc::getRes:
        return encode(values.res, traits.length);
    case uvc::getDef:
        return encode(values.def, traits.length);
    case uvc::getLen:
        return encode(traits.length, 2);
    case uvc::getInfo:
        return encode(traits.isWritable ? uvc::infoGet | uvc::infoSet : uvc::infoGet, 1);
    default:
        return std::nullopt;
    }
}

uvc::RequestError ControlSet::set(const ControlTraits& traits, ByteView data)
{
    if (!traits.isWritable || data.size() != traits.length) {
        return uvc::RequestError::InvalidRequest;
    }
    ControlValues& values = (*this)[traits.id];
    const std::int32_t value = decode(traits, data);
    if (traits.id == ControlId::AutoExposureMode) {
        // A bitmap: exactly one of the modes that RES lists.
        return value != 0 && (value & (value - 1)) == 0 && (value & values.res) == value
                   ? (values.cur = value, uvc::RequestError::None)
                   : uvc::RequestError::OutOfRange;
    }
    if (traits.id == ControlId::Contrast) {
        // The sensor type cannot be changed; writing it back is the reset command.
        if (value != values.cur) {
            return uvc::RequestError::OutOfRange;
        }
        reset();
        return uvc::RequestError::None;
    }
    if (value < values.min || value > values.max) {
        return uvc::RequestError::OutOfRange;
    }
    values.cur = value;
    return uvc::RequestError::None;
}

void ControlSet::reset()
{
    for (const ControlId id : resettable) {
        (*this)[id].cur = (*this)[id].def;
    }
}

} // namespace zrnsim
