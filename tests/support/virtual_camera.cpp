#include "virtual_camera.h"

#include "control/json_views.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <thread>

using nlohmann::json;

VirtualCamera::VirtualCamera(std::size_t index)
    : m_index(index)
    , m_client(zrnsim::ControlClient::fromEnvironment())
{
}

VirtualCamera::VirtualCamera(const std::string& controlSocket, std::size_t index)
    : m_socket(controlSocket)
    , m_index(index)
    , m_client(controlSocket)
{
}

VirtualCamera VirtualCamera::connectAgain() const
{
    return m_socket.empty() ? VirtualCamera(m_index) : VirtualCamera(m_socket, m_index);
}

void VirtualCamera::tell(const std::string& command, const Fields& fields)
{
    json object = json::object();
    for (const auto& [name, value] : fields) {
        object[name] = std::visit([](const auto& plain) { return json(plain); }, value);
    }
    static_cast<void>(ask(command, std::move(object)));
}

json VirtualCamera::ask(const std::string& command)
{
    return ask(command, json::object());
}

json VirtualCamera::ask(const std::string& command, json fields)
{
    fields["command"] = command;
    fields["camera"] = m_index;
    json answer = m_client.call(fields);
    if (!answer.value("ok", false)) {
        throw std::runtime_error(command + " is refused: " + answer.dump());
    }
    return answer;
}

void VirtualCamera::unplug()
{
    tell("unplug");
}

void VirtualCamera::restore()
{
    tell("clear-faults");
    if (!isPlugged()) {
        tell("plug");
    }
}

bool VirtualCamera::isPlugged()
{
    return ask("camera").at("camera").at("plugged");
}

std::string VirtualCamera::serial()
{
    const std::string number = ask("camera").at("camera").at("serial");
    return "ZR" + number;
}

std::uint64_t VirtualCamera::counter(const std::string& name)
{
    return ask("counters").at("counters").at(name);
}

bool VirtualCamera::waitForCounter(const std::string& name, std::uint64_t count)
{
    constexpr std::chrono::minutes patience(1); // for a machine that is busy with other things
    constexpr std::chrono::milliseconds betweenLooks(5);
    const auto end = std::chrono::steady_clock::now() + patience;
    while (counter(name) < count) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(betweenLooks);
    }
    return true;
}

void VirtualCamera::emitFrame()
{
    tell("emit");
}

std::vector<SentFrame> VirtualCamera::sentFrames(std::uint64_t since) const
{
    std::vector<SentFrame> frames;
    // Over a connection of its own, with which the memory for a long answer goes.
    const json answer = connectAgain().ask("frames", {{"since", since}});
    for (const json& frame : answer.at("frames")) {
        const json& taken = frame.at("taken");
        frames.push_back({.request = zrnsim::parseFrameRequest(frame),
                          .complete = frame.at("complete"),
                          .time = frame.at("time"),
                          .taken = taken.is_null() ? std::nullopt : std::optional<double>(taken),
                          .bytes = frame.at("bytes"),
                          .payloadsLost = frame.at("payloadsLost"),
                          .payloadsWithError = frame.at("payloadsWithError"),
                          .withoutEndOfFrame = frame.at("withoutEndOfFrame")});
    }
    return frames;
}

std::optional<zrnsim::FrameRequest> VirtualCamera::sentFrame(std::uint32_t lowNumber,
                                                             unsigned knownBits)
{
    // More than a camera object and libuvc hold.
    constexpr std::uint64_t mostHeldFrames = 96;
    const std::uint64_t mask = (std::uint64_t{1} << knownBits) - 1;
    const std::uint64_t sent = counter("framesStarted");
    const std::vector<SentFrame> frames = sentFrames(sent - std::min(sent, mostHeldFrames));
    const auto found = std::find_if(frames.rbegin(), frames.rend(), [=](const SentFrame& frame) {
        return (frame.request.frameNumber & mask) == (lowNumber & mask);
    });
    return found == frames.rend() ? std::nullopt : std::optional(found->request);
}
