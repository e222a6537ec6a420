#include "model/camera_config.h"
#include "pictures/sensor_types.h"

#include <string>

namespace zrnsim
{

namespace
{

constexpr std::uint64_t serialBase = 2026'0000'0000'0000;
constexpr std::uint64_t serialsPerModel = 1'0000'0000;
constexpr std::uint32_t defaultPayload = 128 * 1024; // a hundred of them fit into 16 MiB

ControlValues range(std::int32_t min, std::int32_t max, std::int32_t def)
{
    return {def, min, max, 1, def};
}

CameraConfig sensorCamera(const SensorType& sensor)
{
    CameraConfig config;
    config.model = "type" + std::to_string(sensor.number);
    config.summary = sensor.summary;
    config.serial = serialBase + static_cast<std::uint64_t>(sensor.number) * serialsPerModel;
    config.sensorType = sensor.number;
    config.sizes = {{1280, 1024}, {640, 480}};
    config.frameRates = {30, 60, 15, 10, 5};
    config.payloadSize = defaultPayload;
    config.controls[ControlId::AutoExposureMode] = {1, 1, 1, 1, 1};
    config.controls[ControlId::Brightness] =
        range(1, sensor.exposureMax, (1 + sensor.exposureMax) / 2);
    config.controls[ControlId::Gain] = range(1, 255, 128);
    config.controls[ControlId::Gamma] = range(0, 255, 128);
    config.controls[ControlId::Sharpness] = range(0, 255, 128);
    config.controls[ControlId::Hue] = range(0, 255, 128);
    config.controls[ControlId::Saturation] = range(0, 255, 128);
    return config;
}

/// A camera of two sensors side by side: it names one sensor's size first and streams the other.
CameraConfig doubleSensorCamera(FrameSize single, FrameSize streamed, std::uint64_t serialBlock)
{
    CameraConfig config = sensorCamera(sensorTypeOf(5));
    config.model = "double-" + std::to_string(single.width) + "x" + std::to_string(single.height);
    config.summary = "two sensors, streams " + std::to_string(streamed.width) + "x" +
                     std::to_string(streamed.height) + " as one 8-bit image";
    config.serial = serialBase + serialBlock * serialsPerModel;
    config.formats = {PixelPacking::Y800};
    config.sizes = {single, streamed};
    return config;
}

std::vector<CameraConfig> makePresets()
{
    std::vector<CameraConfig> presets;
    for (const SensorType& sensor : sensorTypes) {
        presets.push_back(sensorCamera(sensor));
    }
    static_assert(sensorTypes.back().number < 20, "serials of models differ");
    presets.push_back(doubleSensorCamera({1308, 1991}, {2616, 1991}, 20));
    presets.push_back(doubleSensorCamera({640, 960}, {1280, 1024}, 21));
    return presets;
}

} // namespace

const std::vector<CameraConfig>& cameraPresets()
{
    static const std::vector<CameraConfig> presets = makePresets();
    return presets;
}

} // namespace zrnsim
