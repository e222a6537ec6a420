#include "model/negotiation.h"

#include "model/descriptors.h"

#include <algorithm>
#include <cstdlib>

namespace zrnsim
{

Bytes StreamParameters::encode() const
{
    Bytes data;
    ByteWriter writer(data);
    writer.u16(hint).u8(formatIndex).u8(frameIndex).u32(frameInterval);
    writer.u16(0).u16(0).u16(0).u16(0).u16(0); // compression and delay do not apply
    writer.u32(maxVideoFrameSize).u32(maxPayloadTransferSize).u32(topology::clockFrequency);
    writer.u8(0x03).u8(1).u8(1).u8(1); // frame id and end of frame are used; payload version 1
    return data;
}

StreamParameters StreamParameters::decode(ByteView data)
{
    StreamParameters parameters;
    parameters.hint = static_cast<std::uint16_t>(readLittleEndian(data, 0, 2));
    parameters.formatIndex = static_cast<std::uint8_t>(readLittleEndian(data, 2, 1));
    parameters.frameIndex = static_cast<std::uint8_t>(readLittleEndian(data, 3, 1));
    parameters.frameInterval = readLittleEndian(data, 4, 4);
    return parameters;
}

StreamParameters negotiate(const CameraConfig& config, const StreamParameters& wanted)
{
    StreamParameters result;
    result.hint = wanted.hint;
    if (wanted.formatIndex >= 1 && wanted.formatIndex <= config.formats.size()) {
        result.formatIndex = wanted.formatIndex;
    }
    if (wanted.frameIndex >= 1 && wanted.frameIndex <= config.sizes.size()) {
        result.frameIndex = wanted.frameIndex;
    }
    const auto distance = [&](double rate) {
        return std::llabs(static_cast<long long>(frameInterval(rate)) -
                          static_cast<long long>(wanted.frameInterval));
    };
    const double rate = wanted.frameInterval == 0
                            ? config.frameRates.front()
                            : *std::min_element(config.frameRates.begin(), config.frameRates.end(),
                                                [&](double left, double right) {
                                                    return distance(left) < distance(right);
                                                });
    result.frameInterval = frameInterval(rate);
    result.maxVideoFrameSize = frameBytes(sizeOf(config, result), packingOf(config, result));
    result.maxPayloadTransferSize = config.payloadSize;
    return result;
}

StreamParameters negotiationBound(const CameraConfig& config, const StreamParameters& wanted,
                                  bool isMaximum)
{
    const auto [slowest, fastest] =
        std::minmax_element(config.frameRates.begin(), config.frameRates.end());
    StreamParameters bound = wanted;
    bound.frameInterval = frameInterval(isMaximum ? *slowest : *fastest);
    return negotiate(config, bound);
}

FrameSize sizeOf(const CameraConfig& config, const StreamParameters& parameters)
{
    return config.sizes.at(parameters.frameIndex - 1U);
}

PixelPacking packingOf(const CameraConfig& config, const StreamParameters& parameters)
{
    return config.formats.at(parameters.formatIndex - 1U);
}

} // namespace zrnsim
