#include "control/json_views.h"

#include <nlohmann/json.hpp>

#include <array>

namespace zrnsim
{

using nlohmann::json;

namespace
{

double seconds(Clock::time_point time)
{
    return std::chrono::duration<double>(time.time_since_epoch()).count();
}

const char* nameOf(ControlStatus status)
{
    switch (status) {
    case ControlStatus::Done:
        return "done";
    case ControlStatus::Stalled:
        return "stalled";
    case ControlStatus::Failed:
        return "failed";
    case ControlStatus::Unanswered:
        return "unanswered";
    }
    return "unknown";
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
    json sizes = json::array();
    for (const FrameSize size : config.sizes) {
        sizes.push_back({{"width", size.width}, {"height", size.height}});
    }
    json formats = json::array();
    for (const PixelPacking packing : config.formats) {
        formats.push_back(nameOf(packing));
    }
    return {{"camera", index},
            {"model", config.model},
            {"serial", std::to_string(config.serial)},
            {"sensorType", config.sensorType},
            {"sizes", sizes},
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
    return {{"framesProduced", counters.framesProduced},
            {"framesOverrun", counters.framesOverrun},
            {"framesUnrendered", counters.framesUnrendered},
            {"framesStarted", counters.framesStarted},
            {"framesSent", counters.framesSent},
            {"framesCut", counters.framesCut},
            {"payloadsSent", counters.payloadsSent},
            {"payloadsLost", counters.payloadsLost},
            {"payloadsWithError", counters.payloadsWithError},
            {"bytesSent", counters.bytesSent},
            {"transfersCompleted", counters.transfersCompleted},
            {"transfersFailed", counters.transfersFailed},
            {"controlRequests", counters.controlRequests},
            {"controlStalls", counters.controlStalls},
            {"controlFaults", counters.controlFaults},
            {"streamStarts", counters.streamStarts},
            {"streamStops", counters.streamStops},
            {"resets", counters.resets},
            {"requests", counters.requests}};
}

json describeControls(const ControlSet& controls)
{
    json result = json::object();
    for (const ControlTraits& traits : controlTable) {
        const ControlValues& values = controls[traits.id];
        result[std::string(traits.name)] = {{"cur", values.cur},
                                            {"min", values.min},
                                            {"max", values.max},
                                            {"res", values.res},
                                            {"def", values.def}};
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
                          {"status", nameOf(entry.status)},
                          {"data", hex(entry.data)}});
    }
    return result;
}

json describeFrames(const std::vector<SentFrame>& frames)
{
    json result = json::array();
    for (const SentFrame& frame : frames) {
        const FrameRequest& request = frame.request;
        result.push_back({{"index", frame.index},
                          {"time", seconds(frame.started)},
                          {"taken", frame.taken ? json(seconds(*frame.taken)) : json()},
                          {"frameNumber", request.frameNumber},
                          {"sensorType", request.sensorType},
                          {"width", request.width},
                          {"height", request.height},
                          {"bytesPerPosition", request.bytesPerPosition},
                          {"exposureFraction", request.controls.exposureFraction},
                          {"gainFraction", request.controls.gainFraction},
                          {"colorGain", std::to_array(request.controls.colorGain)},
                          {"bytes", frame.bytes},
                          {"payloadsLost", frame.fault.lostPayloads},
                          {"payloadsWithError", frame.fault.errorPayloads},
                          {"withoutEndOfFrame", frame.fault.withoutEndOfFrame},
                          {"complete", frame.complete}});
    }
    return result;
}

FrameRequest parseFrameRequest(const json& frame)
{
    FrameRequest request;
    request.sensorType = frame.at("sensorType");
    request.width = frame.at("width");
    request.height = frame.at("height");
    request.bytesPerPosition = frame.at("bytesPerPosition");
    request.frameNumber = frame.at("frameNumber");
    request.controls.exposureFraction = frame.at("exposureFraction");
    request.controls.gainFraction = frame.at("gainFraction");
    for (std::size_t i = 0; i < std::size(request.controls.colorGain); ++i) {
        request.controls.colorGain[i] = frame.at("colorGain").at(i);
    }
    return request;
}

} // namespace zrnsim
