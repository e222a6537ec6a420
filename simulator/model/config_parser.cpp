#include "model/camera_config.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

namespace zrnsim
{

namespace
{

std::vector<std::string_view> split(std::string_view text, char separator)
{
    std::vector<std::string_view> parts;
    while (true) {
        const std::size_t end = text.find(separator);
        parts.push_back(text.substr(0, end));
        if (end == std::string_view::npos) {
            return parts;
        }
        text.remove_prefix(end + 1);
    }
}

std::string quoted(std::string_view text)
{
    return "'" + std::string(text) + "'";
}

template <typename Number>
Number parseNumber(std::string_view text, Number min, Number max)
{
    Number value{};
    const char* const end = text.data() + text.size();
    std::from_chars_result result{};
    if constexpr (std::is_integral_v<Number>) {
        const bool isHex = text.starts_with("0x") || text.starts_with("0X");
        result = std::from_chars(text.data() + (isHex ? 2 : 0), end, value, isHex ? 16 : 10);
    } else {
        result = std::from_chars(text.data(), end, value);
    }
    if (result.ec != std::errc{} || result.ptr != end || !(value >= min && value <= max)) {
        throw ConfigError(quoted(text) + " is not a number from " + std::to_string(min) + " to " +
                          std::to_string(max));
    }
    return value;
}

template <typename Choice>
struct NamedChoice {
    std::string_view name;
    Choice value;
};

template <typename Choice, std::size_t Count>
Choice parseChoice(std::string_view text, const NamedChoice<Choice> (&choices)[Count])
{
    std::string names;
    for (const auto& choice : choices) {
        if (choice.name == text) {
            return choice.value;
        }
        names += (names.empty() ? "" : ", ") + std::string(choice.name);
    }
    throw ConfigError(quoted(text) + " is none of " + names);
}

constexpr NamedChoice<PixelPacking> packings[]{{"yuy2", PixelPacking::Yuy2},
                                               {"y800", PixelPacking::Y800}};
constexpr NamedChoice<StreamPipe> pipes[]{{"bulk", StreamPipe::Bulk},
                                          {"iso", StreamPipe::Isochronous}};
constexpr NamedChoice<UsbSpeed> speeds[]{{"high", UsbSpeed::High}, {"super", UsbSpeed::Super}};

FrameSize parseSize(std::string_view text)
{
    const auto parts = split(text, 'x');
    if (parts.size() != 2) {
        throw ConfigError(quoted(text) + " is not of the form WIDTHxHEIGHT");
    }
    return {parseNumber<std::uint16_t>(parts[0], 0, 65535),
            parseNumber<std::uint16_t>(parts[1], 0, 65535)};
}

/// "MIN:MAX:DEF[:CUR[:RES]]"
void parseRange(const ControlTraits& traits, std::string_view text, ControlValues& values)
{
    const auto parts = split(text, ':');
    if (parts.size() < 3 || parts.size() > 5) {
        throw ConfigError(quoted(text) + " is not of the form MIN:MAX:DEF[:CUR[:RES]]");
    }
    const auto number = [&](std::size_t i) {
        return traits.isSigned ? parseNumber<std::int32_t>(parts[i], -32768, 32767)
                               : parseNumber<std::int32_t>(parts[i], 0, 65535);
    };
    values.min = number(0);
    values.max = number(1);
    values.def = number(2);
    values.cur = parts.size() > 3 ? number(3) : values.def;
    values.res = parts.size() > 4 ? number(4) : 1;
}

template <typename Parse>
auto parseList(std::string_view text, Parse parse)
{
    std::vector<decltype(parse(text))> values;
    for (const std::string_view part : split(text, '+')) {
        values.push_back(parse(part));
    }
    return values;
}

using Apply = void (*)(CameraConfig&, std::string_view);

constexpr double maxRate = 10'000;

struct Key {
    ConfigKey help;
    Apply apply;
};

constexpr Key keys[]{
    {{"serial", "NUMBER", "64-bit serial number"},
     [](CameraConfig& c, std::string_view v) {
         c.serial = parseNumber<std::uint64_t>(v, 0, std::numeric_limits<std::uint64_t>::max());
     }},
    {{"sensor", "NUMBER", "sensor type that the contrast control reports"},
     [](CameraConfig& c, std::string_view v) { c.sensorType = parseNumber<int>(v, 0, 65535); }},
    {{"sizes", "WxH[+WxH...]", "frame sizes, the default first"},
     [](CameraConfig& c, std::string_view v) { c.sizes = parseList(v, parseSize); }},
    {{"formats", "yuy2|y800[+...]", "video formats of 2 and 1 bytes for each position"},
     [](CameraConfig& c, std::string_view v) {
         c.formats =
             parseList(v, [](std::string_view part) { return parseChoice(part, packings); });
     }},
    {{"rates", "FPS[+FPS...]", "frame rates that the descriptors offer, the default first"},
     [](CameraConfig& c, std::string_view v) {
         c.frameRates = parseList(
             v, [](std::string_view part) { return parseNumber<double>(part, 0.01, maxRate); });
     }},
    {{"rate", "FPS", "frames/s produced whatever was negotiated; 0 sends frames on `emit` only"},
     [](CameraConfig& c, std::string_view v) {
         c.productionRate = parseNumber<double>(v, 0, maxRate);
     }},
    {{"pipe", "bulk|iso", "kind of the streaming endpoint"},
     [](CameraConfig& c, std::string_view v) { c.pipe = parseChoice(v, pipes); }},
    {{"speed", "high|super", "USB speed of the device; super, with pipe=iso high"},
     [](CameraConfig& c, std::string_view v) { c.speed = parseChoice(v, speeds); }},
    {{"payload", "BYTES", "largest payload transfer, header included"},
     [](CameraConfig& c, std::string_view v) {
         c.payloadSize = parseNumber<std::uint32_t>(v, 16, 64 * 1024 * 1024);
     }},
    {{"vendor", "NUMBER", "idVendor"},
     [](CameraConfig& c, std::string_view v) {
         c.vendorId = parseNumber<std::uint16_t>(v, 0, 65535);
     }},
    {{"product", "NUMBER", "idProduct"},
     [](CameraConfig& c, std::string_view v) {
         c.productId = parseNumber<std::uint16_t>(v, 0, 65535);
     }},
};

constexpr std::string_view rangeForm = "MIN:MAX:DEF[:CUR[:RES]]";

/// Controls whose range a key may set; the other carriers follow from serial and sensor.
constexpr ControlId rangedControls[]{ControlId::Brightness, ControlId::Gain,      ControlId::Hue,
                                     ControlId::Saturation, ControlId::Sharpness, ControlId::Gamma};

void applyKey(CameraConfig& config, std::string_view name, std::string_view value)
{
    for (const Key& key : keys) {
        if (key.help.name == name) {
            key.apply(config, value);
            return;
        }
    }
    for (const ControlId id : rangedControls) {
        if (traitsOf(id).name == name) {
            parseRange(traitsOf(id), value, config.controls[id]);
            return;
        }
    }
    throw ConfigError("there is no such key");
}

constexpr std::uint32_t highSpeedIsoMax = 3 * 1024;
constexpr std::uint32_t superSpeedIsoMax = 48 * 1024;

/// Counts are single bytes in the descriptors, and the whole of them has a 16-bit length.
void checkCounts(const CameraConfig& config)
{
    constexpr std::size_t maxSizes = 255;
    constexpr std::size_t maxRates = 57;
    constexpr std::size_t maxDescriptorBytes = 65'000;
    const std::size_t frameBytes = 26 + 4 * config.frameRates.size();
    if (config.sizes.size() > maxSizes) {
        throw ConfigError("sizes: there are more than 255");
    }
    if (config.frameRates.size() > maxRates) {
        throw ConfigError("rates: there are more than 57");
    }
    if (config.formats.size() * (27 + config.sizes.size() * frameBytes) > maxDescriptorBytes) {
        throw ConfigError("formats, sizes and rates together do not fit into the descriptors");
    }
}

/// Fits what was not said to what was.
void finish(CameraConfig& config, bool payloadGiven, bool speedGiven)
{
    if (config.pipe == StreamPipe::Isochronous) {
        // libuvc does not read the SuperSpeed descriptors that say how much a packet carries.
        config.speed = speedGiven ? config.speed : UsbSpeed::High;
        const std::uint32_t limit =
            config.speed == UsbSpeed::High ? highSpeedIsoMax : superSpeedIsoMax;
        if (!payloadGiven) {
            config.payloadSize = limit;
        } else if (config.payloadSize > limit) {
            throw ConfigError("payload: an isochronous endpoint of this speed carries at most " +
                              std::to_string(limit) + " bytes");
        }
    }
    checkCounts(config);
    config.controls.setSerial(config.serial);
    config.controls.setSensorType(config.sensorType);
}

} // namespace

std::string_view nameOf(PixelPacking packing)
{
    return packing == PixelPacking::Yuy2 ? "yuy2" : "y800";
}

const std::vector<ConfigKey>& configKeys()
{
    static const std::vector<ConfigKey> list = [] {
        std::vector<ConfigKey> all;
        for (const Key& key : keys) {
            all.push_back(key.help);
        }
        for (const ControlId id : rangedControls) {
            all.push_back({traitsOf(id).name, rangeForm, traitsOf(id).carries});
        }
        return all;
    }();
    return list;
}

CameraConfig parseCamera(std::string_view text, unsigned ordinal)
{
    const auto parts = split(text, ',');
    const auto& presets = cameraPresets();
    const auto preset = std::find_if(presets.begin(), presets.end(),
                                     [&](const auto& p) { return p.model == parts[0]; });
    if (preset == presets.end()) {
        throw ConfigError("there is no camera model " + quoted(parts[0]) +
                          "; --list-models prints them");
    }
    CameraConfig config = *preset;
    config.serial += ordinal;
    bool payloadGiven = false;
    bool speedGiven = false;
    for (std::size_t i = 1; i < parts.size(); ++i) {
        const std::size_t equals = parts[i].find('=');
        const std::string_view name = parts[i].substr(0, equals);
        if (equals == std::string_view::npos) {
            throw ConfigError(quoted(parts[i]) + " is not of the form KEY=VALUE");
        }
        try {
            applyKey(config, name, parts[i].substr(equals + 1));
        } catch (const ConfigError& error) {
            throw ConfigError(std::string(name) + ": " + error.what());
        }
        payloadGiven = payloadGiven || name == "payload";
        speedGiven = speedGiven || name == "speed";
    }
    finish(config, payloadGiven, speedGiven);
    return config;
}

} // namespace zrnsim
