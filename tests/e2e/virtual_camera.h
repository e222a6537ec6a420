#pragma once

#include "control/control_client.h"
#include "pictures/frame_composer.h"

#include <cstdint>
#include <string>
#include <vector>

/// A frame that a virtual camera says it sent.
struct SentFrame {
    zrnsim::FrameRequest request;
    bool complete; ///< every payload of it has left the camera
};

/// The control socket of the zrnsim that this program runs under, for one of its cameras.
class VirtualCamera
{
public:
    explicit VirtualCamera(std::size_t index = 0);

    /// Runs a command of the control socket. \throws std::runtime_error when it is refused
    nlohmann::json run(const std::string& command,
                       nlohmann::json arguments = nlohmann::json::object());

    std::string serialKey();
    /// Takes one picture, with a frame rate of 0, and waits until it has been sent.
    void emitFrame();
    /// Every frame so far.
    std::vector<SentFrame> sentFrames();

private:
    std::size_t m_index;
    zrnsim::ControlClient m_client = zrnsim::ControlClient::fromEnvironment();
};
