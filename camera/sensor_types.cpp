#include "sensor_types.h"

#include "camera_types.h"

namespace
{

using CameraSpace::PixelFormatType;

constexpr auto doubleSensors = std::to_array<DoubleSensor>({
    {1308, 1991, 2616, 1991, PixelFormatType::Mono8, 5},
    {640, 960, 1280, 1024, PixelFormatType::Double8, 5},
});

} // namespace

const DoubleSensor* findDoubleSensor(int width, int height)
{
    const auto* row = std::ranges::find_if(doubleSensors, [=](const DoubleSensor& sensor) {
        return sensor.width == width && sensor.height == height;
    });
    return row == doubleSensors.end() ? nullptr : row;
}
