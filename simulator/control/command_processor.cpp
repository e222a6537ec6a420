#include "control/command_processor.h"

#include "control/command_fields.h"
#include "control/json_views.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <limits>
#include <string_view>
#include <utility>

namespace zrnsim
{

using nlohmann::json;

namespace
{

/// A camera and what a command needs around it.
struct Target {
    std::size_t index;
    Camera& camera;
    Bus& bus;
};

constexpr std::pair<std::string_view, ControlFault::Action> actions[]{
    {"stall", ControlFault::Action::Stall},   {"fail", ControlFault::Action::Fail},
    {"ignore", ControlFault::Action::Ignore}, {"delay", ControlFault::Action::Delay},
    {"resize", ControlFault::Action::Resize}, {"value", ControlFault::Action::Value},
    {"forget", ControlFault::Action::Forget}};

constexpr std::pair<std::string_view, TransferFault> transferFaults[]{
    {"protocol", TransferFault::Protocol}, {"overflow", TransferFault::Overflow}};

template <auto& choices>
void checkChoice(const json& value)
{
    std::vector<std::string_view> names;
    for (const auto& choice : choices) {
        names.push_back(choice.first);
    }
    checkWord(value, names);
}

/// The choice that checkChoice() has passed.
template <typename Choices>
auto choose(const Choices& choices, const std::string& name)
{
    return std::find_if(std::begin(choices), std::end(choices),
                        [&](const auto& choice) { return choice.first == name; })
        ->second;
}

void checkControl(const json& value)
{
    std::vector<std::string_view> names;
    for (const ControlTraits& traits : controlTable) {
        names.push_back(traits.name);
    }
    checkWord(value, names);
}

/// Requests and targets without a word have a number, which any host may send.
bool isNumbered(const json& value)
{
    return value.is_string() &&
           value.get<std::string>().find_first_of("0123456789") != std::string::npos;
}

void checkRequestName(const json& value)
{
    if (!isNumbered(value) && value != "") {
        checkWord(value, requestNames());
    }
}

void checkTargetName(const json& value)
{
    if (!isNumbered(value) && value != "") {
        checkWord(value, targetNames());
    }
}

constexpr std::int64_t maxInt = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t minInt = std::numeric_limits<std::int32_t>::min();
constexpr std::int64_t maxUnsigned = std::numeric_limits<std::uint32_t>::max();
constexpr std::int64_t maxIndex = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t maxQueued = 1'000'000;    // of what is kept one by one
constexpr std::int64_t maxFrame = 1'000'000'000; // bytes

constexpr auto checkInt = checkRange<minInt, maxInt>;
constexpr auto checkCount = checkRange<0, maxInt>;
constexpr auto checkUnsigned = checkRange<0, maxUnsigned>;
constexpr auto checkIndex = checkRange<0, maxIndex>;
constexpr auto checkQueued = checkRange<0, maxQueued>;

json setControl(const Target& target, const json& request)
{
    const ControlTraits& traits = *findControl(request.at("control").get<std::string>());
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
    ControlFault fault;
    fault.action = choose(actions, request.at("action"));
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
    target.camera.addTransferFaults(choose(transferFaults, request.at("kind")),
                                    request.value("count", 1U));
    return json::object();
}

using Handler = json (*)(const Target&, const json&);

struct Command {
    std::string_view name;
    Handler run;
    std::vector<CommandField> fields; ///< beside those that choose the camera
};

const std::vector<Command> commands{
    {"camera",
     [](const Target& t, const json&) -> json {
         return {{"camera", describeCamera(t.index, t.camera, t.bus)}};
     },
     {}},
    {"counters",
     [](const Target& t, const json&) -> json {
         return {{"counters", describeCounters(t.camera.counters())}};
     },
     {}},
    {"controls",
     [](const Target& t, const json&) -> json {
         return {{"controls", describeControls(t.camera.controls())}};
     },
     {}},
    {"trace",
     [](const Target& t, const json& r) -> json {
         return {{"trace", describeTrace(t.camera.trace(r.value("since", std::uint64_t{0})))}};
     },
     {{"since", checkIndex}}},
    {"frames",
     [](const Target& t, const json& r) -> json {
         const auto since = r.value("since", std::uint64_t{0});
         return {{"frames", describeFrames(t.camera.sentFrames(since))}};
     },
     {{"since", checkIndex}}},
    {"set-control",
     setControl,
     {{"control", checkControl, true},
      {"cur", checkInt},
      {"min", checkInt},
      {"max", checkInt},
      {"res", checkInt},
      {"def", checkInt}}},
    {"emit", emitFrames, {{"count", checkQueued}}},
    {"frame-number",
     [](const Target& t, const json& r) -> json {
         t.camera.setFrameNumber(r.at("number"));
         return json::object();
     },
     {{"number", checkUnsigned, true}}},
    {"descriptors",
     [](const Target& t, const json&) -> json {
         return {{"configuration", t.camera.descriptors().configuration}};
     },
     {}},
    {"set-descriptors",
     [](const Target& t, const json& r) -> json {
         t.camera.setConfigurationDescriptor(r.at("configuration").get<Bytes>());
         return json::object();
     },
     {{"configuration", checkByteList, true}}},
    {"unplug",
     [](const Target& t, const json& r) -> json {
         t.bus.unplug(t.index, r.value("announced", true));
         return json::object();
     },
     {{"announced", checkFlag}}},
    {"plug", plug, {{"serial", checkSerial}, {"announced", checkFlag}}},
    {"control-fault",
     addControlFault,
     {{"action", checkChoice<actions>, true},
      {"request", checkRequestName},
      {"target", checkTargetName},
      {"count", checkInt},
      {"milliseconds", checkCount},
      {"length", checkUnsigned},
      {"value", checkUnsigned}}},
    {"frame-fault",
     setFrameFault,
     {{"count", checkInt},
      {"sizeDelta", checkRange<-maxFrame, maxFrame>},
      {"bytes", checkRange<0, maxFrame>},
      {"lostPayloads", checkCount},
      {"errorPayloads", checkCount},
      {"withoutEndOfFrame", checkFlag}}},
    {"transfer-fault",
     addTransferFaults,
     {{"kind", checkChoice<transferFaults>, true}, {"count", checkQueued}}},
    {"refuse-submissions",
     [](const Target& t, const json& r) -> json {
         t.camera.refuseSubmissions(r.value("count", 1U));
         return json::object();
     },
     {{"count", checkUnsigned}}},
    {"halt",
     [](const Target& t, const json&) -> json {
         t.camera.haltEndpoint();
         return json::object();
     },
     {}},
    {"freeze",
     [](const Target& t, const json&) -> json {
         t.camera.setFrozen(true);
         return json::object();
     },
     {}},
    {"thaw",
     [](const Target& t, const json&) -> json {
         t.camera.setFrozen(false);
         return json::object();
     },
     {}},
    {"clear-faults",
     [](const Target& t, const json&) -> json {
         t.camera.clearFaults();
         return json::object();
     },
     {}},
};

constexpr std::string_view listCommand = "cameras";

/// The fields of a command, with those that choose its camera.
std::vector<CommandField> fieldsOf(const Command& command)
{
    std::vector<CommandField> fields{{"camera", checkIndex}};
    const bool hasSerial = std::any_of(command.fields.begin(), command.fields.end(),
                                       [](const auto& field) { return field.name == "serial"; });
    if (!hasSerial) {
        fields.push_back({"serial", checkSerial});
    }
    fields.insert(fields.end(), command.fields.begin(), command.fields.end());
    return fields;
}

/// The command that a request names; null for that which lists the cameras.
const Command* findCommand(const json& request)
{
    if (!request.contains("command")) {
        throw CommandError("command is missing");
    }
    const json& name = request.at("command");
    std::vector<std::string_view> names{listCommand};
    for (const Command& command : commands) {
        if (name == command.name) {
            return &command;
        }
        names.push_back(command.name);
    }
    if (name != listCommand) {
        throw CommandError("there is no command " + textOf(name) + "; there are " + listOf(names));
    }
    return nullptr;
}

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
        throw CommandError("there is no camera with the serial " + std::to_string(serial));
    }
    return request.value("camera", std::size_t{0});
}

} // namespace

/// @throws CommandError for a request that no camera could ever carry out
void CommandProcessor::check(const json& request) const
{
    const Command* const command = findCommand(request);
    checkFields(request, command == nullptr ? std::vector<CommandField>() : fieldsOf(*command));
    if (request.value("camera", std::size_t{0}) >= m_cameras.size()) {
        throw CommandError("there is no camera " + textOf(request.at("camera")) +
                           "; the first has the number 0");
    }
}

json CommandProcessor::run(const json& request)
{
    check(request);
    if (const Command* const command = findCommand(request)) {
        const std::size_t index = findCamera(m_cameras, request);
        return command->run({index, *m_cameras[index], m_bus}, request);
    }
    json list = json::array();
    for (std::size_t i = 0; i < m_cameras.size(); ++i) {
        list.push_back(describeCamera(i, *m_cameras[i], m_bus));
    }
    return {{"cameras", list}};
}

json CommandProcessor::execute(const json& request)
{
    try {
        json answer = run(request);
        answer["ok"] = true;
        return answer;
    } catch (const CommandError& error) {
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
