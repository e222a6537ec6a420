#include "control/json_views.h"

#include <nlohmann/json.hpp>

namespace zrnsim
{

using nlohmann::json;

NLOHMANN_JSON_SERIALIZE_ENUM(ControlStatus, {{ControlStatus::Done, "done"},
                                             {ControlStatus::Stalled, "stalled"},
                                             {ControlStatus::Failed, "failed"},
                                             {ControlStatus::Unanswered, "unanswered"}})
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(FrameSize, width, height)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(ControlValues, cur, min, max, res, def)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Counters, framesProduced, framesOverrun, framesUnrendered,
                                   framesStarted, framesSent, framesCut, payloadsSent, payloadsLost,
                                   payloadsWithError, bytesSent, transfersCompleted,
                                   transfersFailed, controlRequests, controlStalls, controlFaults,
                                   streamStarts, streamStops, resets, requests)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(FrameRequest, sensorType, width, height, bytesPerPosition,
                                   frameNumber)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(PictureControls, exposureFraction, gainFraction, colorGain)

namespace
{

double seconds(Clock::time_point time)
{
    return std::chrono::duration<double>(time.time_since_epoch()).count();
}

std::string hex(const Bytes& data)
{
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : data) {
        text += digits[byte >> 4U];
        text += digits[byte & 0xfU];
    }
    return text;
}

json describeStream(const CameraConfig& config, const StreamParameters& parameters)
{
    const FrameSize size = sizeOf(config, parameters);
    return {{"format", nameOf(packingOf(config, parameters))},
            {"width", size.width},
            {"height", size.height},
            {"frameInterval", parameters.frameInterval},
            {"frameBytes", parameters.maxVideoFrameSize},
            {"payloadBytes", parameters.maxPayloadTransferSize}};
}

} // namespace

json describeCamera(std::size_t index, const Camera& camera, const Bus& bus)
{
    const CameraConfig config = camera.config();
    json formats = json::array();
    for (const PixelPacking packing : config.formats) {
        formats.push_back(nameOf(packing));
    }
    return {{"camera", index},
            {"model", config.model},
            {"serial", std::to_string(config.serial)},
            {"sensorType", config.sensorType},
            {"sizes", config.sizes},
            {"formats", formats},
            {"frameRates", config.frameRates},
            {"productionRate", config.productionRate ? json(*config.productionRate) : json()},
            {"pipe", config.pipe == StreamPipe::Bulk ? "bulk" : "iso"},
            {"speed", config.speed == UsbSpeed::Super ? "super" : "high"},
            {"plugged", bus.isPlugged(index)},
            {"location", bus.location(index)},
            {"streaming", camera.isStreaming()},
            {"stream", describeStream(config, camera.streamParameters())}};
}

json describeCounters(const Counters& counters)
{
    return counters;
}

json describeControls(const ControlSet& controls)
{
    json result = json::object();
    for (const ControlTraits& traits : controlTable) {
        result[std::string(traits.name)] = controls[traits.id];
    }
    return result;
}

json describeTrace(const std::vector<TraceEntry>& entries)
{
    json result = json::array();
    for (const TraceEntry& entry : entries) {
        result.push_back({{"index", entry.index},
                          {"time", seconds(entry.time)},
                          {"request", entry.name.request},
                          {"target", entry.name.target},
                          {"requestType", entry.setup.requestType},
                          {"requestCode", entry.setup.request},
                          {"value", entry.setup.value},
                          {"wIndex", entry.setup.index},
                          {"length", entry.setup.length},
                          {"status", entry.status},
                          {"data", hex(entry.data)}});
    }
    return result;
}

json describeFrames(const std::vector<SentFrame>& frames)
{
    json result = json::array();
    for (const SentFrame& frame : frames) {
        json described = frame.request;
        described.update(json(frame.request.controls));
        described.update({{"index", frame.index},
                          {"time", seconds(frame.started)},
                          {"taken", frame.taken ? json(seconds(*frame.taken)) : json()},
                          {"bytes", frame.bytes},
                          {"payloadsLost", frame.fault.lostPayloads},
                          {"payloadsWithError", frame.fault.errorPayloads},
                          {"withoutEndOfFrame", frame.fault.withoutEndOfFrame},
                          {"complete", frame.complete}});
        result.push_back(std::move(described));
    }
    return result;
}

FrameRequest parseFrameRequest(const json& frame)
{
    auto request = frame.get<FrameRequest>();
    request.controls = frame.get<PictureControls>();
    return request;
}

} // namespace zrnsim
