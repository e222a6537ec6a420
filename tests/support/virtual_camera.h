#pragma once

#include "control/control_client.h"
#include "pictures/frame_composer.h"
#include "receiver_model.h"

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

/// A frame that a virtual camera says it sent.
struct SentFrame {
    zrnsim::FrameRequest request;
    bool complete;               ///< every payload of it has left the camera
    double time;                 ///< seconds of CLOCK_MONOTONIC when the camera began to send it
    std::optional<double> taken; ///< when the host had the transfer in which it begins
    std::size_t bytes;           ///< of the frame as it was sent, lost payloads included
    int payloadsLost;            ///< that were to be left out after the first
    int payloadsWithError;       ///< that had the error bit, from the first
    bool withoutEndOfFrame;
};

/// One of the virtual cameras that this process runs on: its cable and its insides, through the
/// control socket of zrnsim. One command at a time; threads have an object each.
class VirtualCamera
{
public:
    /// What a command has besides its name.
    using Value = std::variant<bool, std::int64_t, double, std::string, std::vector<std::uint8_t>>;
    using Fields = std::vector<std::pair<std::string, Value>>;

    explicit VirtualCamera(std::size_t index = 0);
    /// A camera of another process, whose control socket this is.
    explicit VirtualCamera(const std::string& controlSocket, std::size_t index = 0);

    /// Carries out a command of the control socket. @throws std::runtime_error when refused
    void tell(const std::string& command, const Fields& fields = {});
    /// The same for a command whose answer, or one of whose fields, is more than a value.
    nlohmann::json ask(const std::string& command);
    nlohmann::json ask(const std::string& command, nlohmann::json fields);

    void unplug();
    /// Plugs it in if it is unplugged, and ends every fault.
    void restore();
    bool isPlugged();

    /// The serial as hosts see it.
    std::string serial();
    /// One of the counters, as zrnsim names it.
    std::uint64_t counter(const std::string& name);
    /// Waits until a counter has come so far. @return false when it stays behind for a minute
    bool waitForCounter(const std::string& name, std::uint64_t count);
    /// Takes one picture, with a frame rate of 0, and waits until it has been sent.
    void emitFrame();

    /// Every frame that was started, but for so many of the first.
    std::vector<SentFrame> sentFrames(std::uint64_t since = 0) const;
    /// The newest of the frames whose number may be the one of which the low bits are known, among
    /// those that a host can still hold.
    std::optional<zrnsim::FrameRequest> sentFrame(std::uint32_t lowNumber, unsigned knownBits);

private:
    /// Another connection to the same camera.
    [[nodiscard]] VirtualCamera connectAgain() const;

    std::string m_socket; ///< empty: that of the environment
    std::size_t m_index;
    zrnsim::ControlClient m_client;
};
