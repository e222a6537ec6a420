#include "control/command_processor.h"

#include "control/json_views.h"

#include <nlohmann/json.hpp>

#include <charconv>
#include <functional>
#include <stdexcept>
#include <utility>

namespace zrnsim
{

using nlohmann::json;

namespace
{

/// A request that cannot be carried out; what() goes into the answer.
class CommandError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// A camera and what a command needs around it.
struct Target {
    std::size_t index;
    Camera& camera;
    Bus& bus;
};

template <typename Value>
using Names = std::initializer_list<std::pair<const char*, Value>>;

template <typename Value>
Value choose(const json& request, const char* key, Names<Value> names)
{
    const std::string wanted = request.at(key);
    for (const auto& [name, value] : names) {
        if (wanted == name) {
            return value;
        }
    }
    throw CommandError(std::string(key) + ": '" + wanted + "' is not known");
}

std::uint64_t parseSerial(const json& value)
{
    if (value.is_number_integer() && value >= 0) {
        return value;
    }
    const std::string text = value;
    std::uint64_t serial = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), serial);
    if (error != std::errc{} || end != text.data() + text.size()) {
        throw CommandError("serial: '" + text + "' is not a number");
    }
    return serial;
}

const ControlTraits& parseControl(const json& request)
{
    const std::string name = request.at("control");
    const ControlTraits* const traits = findControl(name);
    if (traits == nullptr) {
        throw CommandError("control: there is no '" + name + "'");
    }
    return *traits;
}

json setControl(const Target& target, const json& request)
{
    const ControlTraits& traits = parseControl(request);
    ControlValues values = target.camera.controls()[traits.id];
    values.cur = request.value("cur", values.cur);
    values.min = request.value("min", values.min);
    values.max = request.value("max", values.max);
    values.res = request.value("res", values.res);
    values.def = request.value("def", values.def);
    target.camera.setControl(traits.id, values);
    return json::object();
}

json emitFrames(const Target& target, const json& request)
{
    if (!target.camera.emitFrames(request.value("count", 1U))) {
        throw CommandError("the camera is not streaming");
    }
    return json::object();
}

json plug(const Target& target, const json& request)
{
    const auto serial = request.contains("serial")
                            ? std::optional(parseSerial(request.at("serial")))
                            : std::nullopt;
    target.bus.plug(target.index, serial, request.value("announced", true));
    return json::object();
}

json addControlFault(const Target& target, const json& request)
{
    using Action = ControlFault::Action;
    ControlFault fault;
    fault.action = choose<Action>(request, "action",
                                  {{"stall", Action::Stall},
                                   {"fail", Action::Fail},
                                   {"ignore", Action::Ignore},
                                   {"delay", Action::Delay},
                                   {"resize", Action::Resize},
                                   {"value", Action::Value},
                                   {"forget", Action::Forget}});
    fault.request = request.value("request", "");
    fault.target = request.value("target", "");
    fault.requests = request.value("count", 1);
    fault.delay = std::chrono::milliseconds(request.value("milliseconds", 0));
    fault.length = request.value("length", std::size_t{0});
    fault.value = request.value("value", 0U);
    target.camera.addControlFault(fault);
    return json::object();
}

json setFrameFault(const Target& target, const json& request)
{
    FrameFault fault;
    fault.frames = request.value("count", 1);
    fault.sizeDelta = request.value("sizeDelta", std::int64_t{0});
    if (request.contains("bytes")) {
        fault.bytes = request.at("bytes").get<std::size_t>();
    }
    fault.lostPayloads = request.value("lostPayloads", 0);
    fault.errorPayloads = request.value("errorPayloads", 0);
    fault.withoutEndOfFrame = request.value("withoutEndOfFrame", false);
    target.camera.setFrameFault(fault);
    return json::object();
}

json addTransferFaults(const Target& target, const json& request)
{
    const auto kind = choose<TransferFault>(
        request, "kind",
        {{"protocol", TransferFault::Protocol}, {"overflow", TransferFault::Overflow}});
    target.camera.addTransferFaults(kind, request.value("count", 1U));
    return json::object();
}

using Handler = json (*)(const Target&, const json&);

struct Command {
    const char* name;
    Handler run;
};

constexpr Command commands[]{
    {"camera",
     [](const Target& t, const json&) -> json {
         return {{"camera", describeCamera(t.index, t.camera, t.bus)}};
     }},
    {"counters",
     [](const Target& t, const json&) -> json {
         return {{"counters", describeCounters(t.camera.counters())}};
     }},
    {"controls",
     [](const Target& t, const json&) -> json {
         return {{"controls", describeControls(t.camera.controls())}};
     }},
    {"trace",
     [](const Target& t, const json& r) -> json {
         return {{"trace", describeTrace(t.camera.trace(r.value("since", std::uint64_t{0})))}};
     }},
    {"frames",
     [](const Target& t, const json& r) -> json {
         const auto since = r.value("since", std::uint64_t{0});
         return {{"frames", describeFrames(t.camera.sentFrames(since))}};
     }},
    {"set-control", setControl},
    {"emit", emitFrames},
    {"frame-number",
     [](const Target& t, const json& r) -> json {
         t.camera.setFrameNumber(r.at("number"));
         return json::object();
     }},
    {"descriptors",
     [](const Target& t, const json&) -> json {
         return {{"configuration", t.camera.descriptors().configuration}};
     }},
    {"set-descriptors",
     [](const Target& t, const json& r) -> json {
         t.camera.setConfigurationDescriptor(r.at("configuration").get<Bytes>());
         return json::object();
     }},
    {"unplug",
     [](const Target& t, const json& r) -> json {
         t.bus.unplug(t.index, r.value("announced", true));
         return json::object();
     }},
    {"plug", plug},
    {"control-fault", addControlFault},
    {"frame-fault", setFrameFault},
    {"transfer-fault", addTransferFaults},
    {"refuse-submissions",
     [](const Target& t, const json& r) -> json {
         t.camera.refuseSubmissions(r.value("count", 1U));
         return json::object();
     }},
    {"halt",
     [](const Target& t, const json&) -> json {
         t.camera.haltEndpoint();
         return json::object();
     }},
    {"freeze",
     [](const Target& t, const json&) -> json {
         t.camera.setFrozen(true);
         return json::object();
     }},
    {"thaw",
     [](const Target& t, const json&) -> json {
         t.camera.setFrozen(false);
         return json::object();
     }},
    {"clear-faults",
     [](const Target& t, const json&) -> json {
         t.camera.clearFaults();
         return json::object();
     }},
};

/// The camera that a request names by number (the default is 0) or by serial.
std::size_t findCamera(const CameraList& cameras, const json& request)
{
    if (request.contains("serial") && !request.contains("camera") &&
        request.at("command") != "plug") {
        const std::uint64_t serial = parseSerial(request.at("serial"));
        for (std::size_t i = 0; i < cameras.size(); ++i) {
            if (cameras[i]->config().serial == serial) {
                return i;
            }
        }
        throw CommandError("there is no camera with this serial");
    }
    const auto index = request.value("camera", std::size_t{0});
    if (index >= cameras.size()) {
        throw CommandError("there is no camera " + std::to_string(index));
    }
    return index;
}

} // namespace

json CommandProcessor::run(const json& request)
{
    const std::string name = request.at("command");
    if (name == "cameras") {
        json list = json::array();
        for (std::size_t i = 0; i < m_cameras.size(); ++i) {
            list.push_back(describeCamera(i, *m_cameras[i], m_bus));
        }
        return {{"cameras", list}};
    }
    for (const Command& command : commands) {
        if (name == command.name) {
            const std::size_t index = findCamera(m_cameras, request);
            return command.run({index, *m_cameras[index], m_bus}, request);
        }
    }
    throw CommandError("there is no command '" + name + "'");
}

json CommandProcessor::execute(const json& request)
{
    try {
        json answer = run(request);
        answer["ok"] = true;
        return answer;
    } catch (const CommandError& error) {
        return {{"ok", false}, {"error", error.what()}};
    } catch (const json::exception& error) {
        return {{"ok", false}, {"error", error.what()}};
    }
}

std::string CommandProcessor::executeLine(const std::string& line)
{
    const json request = json::parse(line, nullptr, false);
    const json answer = request.is_object() ? execute(request)
                                            : json{{"ok", false}, {"error", "not a JSON object"}};
    return answer.dump();
}

} // namespace zrnsim
