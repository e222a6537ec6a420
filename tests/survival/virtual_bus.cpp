#include "virtual_bus.h"

#include <algorithm>
#include <stdexcept>

namespace survival
{

using nlohmann::json;

VirtualBus::VirtualBus()
    : m_client(zrnsim::ControlClient::fromEnvironment())
{
}

json VirtualBus::tell(const std::string& command, json fields)
{
    fields["command"] = command;
    json answer = m_client.call(fields);
    if (!answer.value("ok", false)) {
        throw std::runtime_error(command + " is refused: " + answer.dump());
    }
    return answer;
}

void VirtualBus::unplug(std::size_t camera)
{
    tell("unplug", {{"camera", camera}});
}

void VirtualBus::restore(std::size_t camera)
{
    tell("clear-faults", {{"camera", camera}});
    if (!isPlugged(camera)) {
        tell("plug", {{"camera", camera}});
    }
}

bool VirtualBus::isPlugged(std::size_t camera)
{
    return tell("camera", {{"camera", camera}}).at("camera").at("plugged");
}

std::string VirtualBus::serial(std::size_t camera)
{
    const std::string number = tell("camera", {{"camera", camera}}).at("camera").at("serial");
    return "ZR" + number;
}

std::uint64_t VirtualBus::counter(const std::string& name, std::size_t camera)
{
    return tell("counters", {{"camera", camera}}).at("counters").at(name);
}

std::optional<json> VirtualBus::sentFrame(std::uint32_t lowNumber, unsigned knownBits,
                                          std::size_t camera)
{
    // More than a camera object and libuvc hold.
    constexpr std::uint64_t mostHeldFrames = 96;
    const std::uint64_t mask = (std::uint64_t{1} << knownBits) - 1;
    const std::uint64_t sent = counter("framesStarted", camera);
    const std::uint64_t since = sent - std::min(sent, mostHeldFrames);
    // Over a connection of its own, with which the memory for this long answer goes.
    const json frames =
        VirtualBus().tell("frames", {{"camera", camera}, {"since", since}}).at("frames");
    // The newest of the frames that the known bits may mean.
    for (auto frame = frames.rbegin(); frame != frames.rend(); ++frame) {
        const std::uint32_t number = frame->at("frameNumber");
        if ((number & mask) == (lowNumber & mask)) {
            return *frame;
        }
    }
    return std::nullopt;
}

} // namespace survival
