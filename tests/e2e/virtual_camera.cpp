#include "virtual_camera.h"

#include <stdexcept>

using nlohmann::json;

VirtualCamera::VirtualCamera(std::size_t index)
    : m_index(index)
{
}

json VirtualCamera::run(const std::string& command, json arguments)
{
    arguments["command"] = command;
    arguments["camera"] = m_index;
    json answer = m_client.call(arguments);
    if (!answer.at("ok").get<bool>()) {
        throw std::runtime_error(command + ": " + answer.at("error").get<std::string>());
    }
    return answer;
}

std::string VirtualCamera::serialKey()
{
    return run("camera").at("camera").at("serial");
}

void VirtualCamera::emitFrame()
{
    run("emit");
}

std::vector<SentFrame> VirtualCamera::sentFrames()
{
    std::vector<SentFrame> frames;
    const json answer = run("frames");
    for (const json& entry : answer.at("frames")) {
        zrnsim::FrameRequest request;
        request.sensorType = entry.at("sensorType");
        request.width = entry.at("width");
        request.height = entry.at("height");
        request.bytesPerPosition = entry.at("bytesPerPosition");
        request.frameNumber = entry.at("frameNumber");
        request.controls.exposureFraction = entry.at("exposureFraction");
        request.controls.gainFraction = entry.at("gainFraction");
        for (std::size_t i = 0; i < std::size(request.controls.colorGain); ++i) {
            request.controls.colorGain[i] = entry.at("colorGain").at(i);
        }
        frames.push_back({request, entry.at("complete")});
    }
    return frames;
}
