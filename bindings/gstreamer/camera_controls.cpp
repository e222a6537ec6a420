#include "camera_controls.h"

#include "client/property_keys.h"

#include <limits>

namespace zrngst
{
namespace
{

template <const char* const& key>
void writeProperty(zrn::Camera& camera, int value)
{
    camera.setProperty(key, std::int32_t{value});
}

template <const char* const& key>
int readProperty(zrn::Camera& camera)
{
    return static_cast<int>(zrn::numberOf(camera.property(key)));
}

void writeExposure(zrn::Camera& camera, int value)
{
    camera.setExposure(std::chrono::microseconds(value));
}

int readExposure(zrn::Camera& camera)
{
    return static_cast<int>(camera.knownExposure().count());
}

void writeGain(zrn::Camera& camera, int value)
{
    camera.setGain(static_cast<std::uint32_t>(value));
}

int readGain(zrn::Camera& camera)
{
    return static_cast<int>(camera.knownGain());
}

} // namespace

const std::array<Control, controlCount>& controls()
{
    constexpr int any = std::numeric_limits<int>::max();
    constexpr int colour = 255;
    // clang-format off
    static constexpr std::array<Control, controlCount> table{{
        {"exposure", "Exposure", "Exposure time in microseconds; -1 leaves it as the camera has it",
         0, any, true, writeExposure, readExposure},
        {"gain", "Gain", "Gain of the sensor in the camera's own units; -1 leaves it as the camera has it",
         0, 65535, true, writeGain, readGain},
        {"r-gain", "Red gain", "Gain of the red cells of the colour mosaic; -1 leaves it as the camera has it",
         0, colour, true, writeProperty<zrn::keys::rGain>, readProperty<zrn::keys::rGain>},
        {"gr-gain", "Green gain in red rows", "Gain of the green cells in red rows; -1 leaves it as the camera has it",
         0, colour, true, writeProperty<zrn::keys::grGain>, readProperty<zrn::keys::grGain>},
        {"gb-gain", "Green gain in blue rows", "Gain of the green cells in blue rows; -1 leaves it as the camera has it",
         0, colour, true, writeProperty<zrn::keys::gbGain>, readProperty<zrn::keys::gbGain>},
        {"b-gain", "Blue gain", "Gain of the blue cells of the colour mosaic; -1 leaves it as the camera has it",
         0, colour, true, writeProperty<zrn::keys::bGain>, readProperty<zrn::keys::bGain>},
        {"cache", "Cache", "Frames that the driver keeps for a pipeline that is late; -1 leaves it at the driver's 16",
         1, any, false, writeProperty<zrn::keys::cacheFrameCount>, readProperty<zrn::keys::cacheFrameCount>},
    }};
    // clang-format on
    return table;
}

void writeAll(zrn::Camera& camera, const std::array<int, controlCount>& values)
{
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (values[i] != untouched) {
            controls()[i].write(camera, values[i]);
        }
    }
}

} // namespace zrngst
