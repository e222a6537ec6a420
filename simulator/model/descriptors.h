#pragma once

#include "model/camera_config.h"

#include <string>
#include <vector>

namespace zrnsim
{

/// What the camera answers to GET_DESCRIPTOR.
struct DescriptorSet {
    Bytes device;
    Bytes configuration;
    Bytes qualifier;                  ///< device qualifier; empty above high speed
    Bytes bos;                        ///< binary object store; empty below SuperSpeed
    std::vector<std::string> strings; ///< strings[i] has index i + 1
};

/// Builds all descriptors of a camera.
DescriptorSet buildDescriptors(const CameraConfig& config);

/// A string descriptor: the language list for index 0, else UTF-16 of an ASCII text.
Bytes stringDescriptor(const std::vector<std::string>& strings, std::uint8_t index);

/// Frame interval in units of 100 ns.
std::uint32_t frameInterval(double framesPerSecond);

/// Bytes that one packet (isochronous) or one USB packet (bulk) of the streaming endpoint carries
/// in the given alternate setting; 0 where the endpoint does not exist.
std::uint32_t endpointCapacity(const CameraConfig& config, std::uint8_t alternateSetting);

/// Number of alternate settings of the streaming interface.
std::uint8_t alternateSettings(const CameraConfig& config);

/// Bytes of one frame; wraps like the 32-bit field that carries it.
std::uint32_t frameBytes(FrameSize size, PixelPacking packing);

} // namespace zrnsim
