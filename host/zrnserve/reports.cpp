#include "zrnserve/reports.h"

#include <nlohmann/json.hpp>

#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>
#include <sstream>

namespace zrnserve
{
namespace
{

using nlohmann::json;
using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

int countOf(const std::map<std::string, int>& viewers, const std::string& address)
{
    const auto known = viewers.find(address);
    return known == viewers.end() ? 0 : known->second;
}

ClientMetric metric(MetricType type, double value, std::vector<ClientMetric::Label> labels = {})
{
    ClientMetric metric;
    metric.label = std::move(labels);
    metric.counter.value = type == MetricType::Counter ? value : 0;
    metric.gauge.value = type == MetricType::Gauge ? value : 0;
    return metric;
}

} // namespace

std::string camerasAsJson(const CameraList& cameras, const RtspService& service,
                          const LosslessStreams& lossless, const std::string& host)
{
    const std::map<std::string, int> viewers = service.viewers();
    const std::string name = host.find(':') == std::string::npos ? host : "[" + host + "]";
    const std::string start = (service.isEncrypted() ? "rtsps://" : "rtsp://") + name + ":" +
                              std::to_string(service.port());
    json list = json::array();
    for (const auto& [serial, entry] : cameras.bySerial()) {
        json streams = json::object();
        for (const View view : views) {
            const std::string address = addressOf(*entry.camera, view);
            streams[nameOf(view)] = {{"address", start + address},
                                     {"viewers", countOf(viewers, address)}};
        }
        for (const auto& stream : lossless) {
            if (&stream->camera() == entry.camera.get()) {
                json receivers = json::array();
                for (const LosslessStream::Receiver& receiver : stream->receivers()) {
                    receivers.push_back({{"client", receiver.name}, {"sent", receiver.sent}});
                }
                streams["lossless"] = {
                    {"address", "srt://" + name + ":" + std::to_string(stream->port())},
                    {"viewers", receivers.size()},
                    {"receivers", receivers}};
            }
        }
        const CameraCounts counts = entry.camera->counts();
        list.push_back({{"serial", serial},
                        {"port", entry.port},
                        {"present", entry.isPresent},
                        {"open", counts.isOpen},
                        {"frames", counts.frames},
                        {"captured", counts.captured},
                        {"outages", counts.outages},
                        {"streams", streams}});
    }
    json connections = json::array();
    for (const auto& [client, bytes] : service.connections()) {
        connections.push_back({{"client", client}, {"sent", bytes}});
    }
    return json{{"version", ZRN_VERSION},
                {"clients", connections.size()},
                {"connections", connections},
                {"cameras", list}}
               .dump(2, ' ', false, json::error_handler_t::replace) +
           "\n";
}

std::string metrics(const CameraList& cameras, const RtspService& service,
                    const LosslessStreams& lossless)
{
    constexpr MetricType counter = MetricType::Counter;
    constexpr MetricType gauge = MetricType::Gauge;
    MetricFamily present{"zrn_camera_present", "Whether the camera is on the bus.", gauge, {}};
    MetricFamily open{"zrn_camera_open", "Whether the server has opened it.", gauge, {}};
    MetricFamily opened{"zrn_camera_openings_total", "How often it was opened.", counter, {}};
    MetricFamily frames{"zrn_frames_total", "Frames received.", counter, {}};
    MetricFamily missing{"zrn_frames_missing_total", "Frames missing, by place.", counter, {}};
    MetricFamily outages{"zrn_outages_total", "How often it left or fell silent.", counter, {}};
    MetricFamily errors{
        "zrn_usb_errors_total", "What went wrong on the bus, by kind.", counter, {}};
    MetricFamily skipped{
        "zrn_images_skipped_total", "Images that an encoder was too slow for.", counter, {}};
    MetricFamily viewing{"zrn_viewers", "Clients that look at a stream.", gauge, {}};
    MetricFamily failures{"zrn_lossless_failures_total",
                          "Lossless streams that ended because something failed.",
                          counter,
                          {}};
    MetricFamily latency{"zrn_frame_latency_seconds",
                         "From the first bytes of a frame in this machine to its encoders.",
                         MetricType::Summary,
                         {}};
    const std::map<std::string, int> viewers = service.viewers();
    for (const auto& [serial, entry] : cameras.bySerial()) {
        const ClientMetric::Label camera{"serial", serial};
        const CameraCounts counts = entry.camera->counts();
        const auto add = [&camera](MetricFamily& family, double value) {
            family.metric.push_back(metric(family.type, value, {camera}));
        };
        add(present, entry.isPresent);
        add(open, counts.isOpen);
        add(opened, static_cast<double>(counts.opened));
        add(frames, static_cast<double>(counts.frames));
        add(outages, static_cast<double>(counts.outages));
        add(skipped, static_cast<double>(counts.skipped));
        const auto addMissing = [&](const char* place, std::uint64_t count) {
            missing.metric.push_back(
                metric(counter, static_cast<double>(count), {camera, {"place", place}}));
        };
        addMissing("camera", counts.lostCamera);
        addMissing("library", counts.lostLibrary);
        addMissing("ring", counts.lostRing);
        addMissing("queue", counts.lostQueue);
        const auto addError = [&](const char* kind, std::uint64_t count) {
            errors.metric.push_back(
                metric(counter, static_cast<double>(count), {camera, {"kind", kind}}));
        };
        addError("gone", counts.gone);
        addError("silent", counts.silent);
        addError("refused", counts.refused);
        addError("damaged", counts.damaged);
        for (const View view : views) {
            viewing.metric.push_back(metric(gauge, countOf(viewers, addressOf(*entry.camera, view)),
                                            {camera, {"stream", nameOf(view)}}));
        }
        ClientMetric age = entry.camera->latency();
        age.label.push_back(camera);
        latency.metric.push_back(std::move(age));
    }
    for (const auto& stream : lossless) {
        const ClientMetric::Label camera{"serial", stream->camera().serial()};
        viewing.metric.push_back(metric(gauge, static_cast<double>(stream->receivers().size()),
                                        {camera, {"stream", "lossless"}}));
        failures.metric.push_back(
            metric(counter, static_cast<double>(stream->failures()), {camera}));
    }
    const MetricFamily clients{"zrn_clients",
                               "Connected RTSP clients.",
                               gauge,
                               {metric(gauge, static_cast<double>(service.clientCount()))}};
    const MetricFamily dropped{"zrn_clients_dropped_total",
                               "Clients dropped because they were too slow.",
                               counter,
                               {metric(counter, static_cast<double>(service.droppedClients()))}};
    std::ostringstream text;
    prometheus::TextSerializer().Serialize(text,
                                           {present, open, opened, frames, missing, outages, errors,
                                            skipped, viewing, failures, latency, clients, dropped});
    return text.str();
}

} // namespace zrnserve
