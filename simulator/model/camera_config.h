#pragma once

#include "camera_ids.h"
#include "model/controls.h"

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace zrnsim
{

enum class UsbSpeed : std::uint8_t { High, Super };
enum class StreamPipe : std::uint8_t { Bulk, Isochronous };

struct FrameSize {
    std::uint16_t width = 0;
    std::uint16_t height = 0;

    friend bool operator==(const FrameSize&, const FrameSize&) = default;
};

/// An uncompressed video format. Each format of a camera lists all of its frame sizes.
enum class PixelPacking : std::uint8_t {
    Yuy2, ///< two bytes for each pixel position
    Y800, ///< one byte for each pixel position
};

constexpr int bytesPerPosition(PixelPacking packing)
{
    return packing == PixelPacking::Yuy2 ? 2 : 1;
}

std::string_view nameOf(PixelPacking packing);

/// Everything that makes one virtual camera differ from another.
struct CameraConfig {
    std::string model;   ///< name of the preset
    std::string summary; ///< one line for the list of models
    std::uint16_t vendorId = zrn::cameraVendorId;
    std::uint16_t productId = zrn::cameraProductId;
    std::uint64_t serial = 0;
    int sensorType = 0; ///< 0..65535, as the contrast control reports it
    std::vector<PixelPacking> formats{PixelPacking::Yuy2};
    std::vector<FrameSize> sizes;
    std::vector<double> frameRates; ///< frames/s offered for every size, the first is the default
    /// Frames/s that are produced: none follows the negotiated interval, 0 waits for `emit`.
    std::optional<double> productionRate;
    StreamPipe pipe = StreamPipe::Bulk;
    UsbSpeed speed = UsbSpeed::Super;
    std::uint32_t payloadSize = 0; ///< dwMaxPayloadTransferSize, header included
    ControlSet controls;           ///< ranges and initial values
};

/// A model, key or value that cannot be used; what() is a sentence for the user.
class ConfigError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The presets, in the order in which they are listed.
const std::vector<CameraConfig>& cameraPresets();

/// A key that parseCamera() accepts after the model's name.
struct ConfigKey {
    std::string_view name;
    std::string_view value; ///< form of its value, for the help
    std::string_view help;
};
const std::vector<ConfigKey>& configKeys();

/// Reads "MODEL[,key=value...]".
/// @param ordinal number of the camera on the command line, from 1: makes the serials of cameras
///        of one model differ.
/// @throws ConfigError
CameraConfig parseCamera(std::string_view text, unsigned ordinal);

} // namespace zrnsim
