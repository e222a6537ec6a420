#pragma once

#include "control/control_client.h"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace survival
{

/// The cables and the insides of the virtual cameras that this process runs on. One command at a
/// time; commands may come from any thread, each with a bus of its own.
class VirtualBus
{
public:
    VirtualBus();

    /// Carries out a command of zrnsim's control socket. @throws std::runtime_error when refused
    nlohmann::json tell(const std::string& command,
                        nlohmann::json fields = nlohmann::json::object());

    void unplug(std::size_t camera = 0);
    /// Plugs in what is unplugged, ends every fault.
    void restore(std::size_t camera = 0);

    bool isPlugged(std::size_t camera = 0);
    /// The serial as hosts see it.
    std::string serial(std::size_t camera = 0);
    /// One of the counters, as zrnsim names it.
    std::uint64_t counter(const std::string& name, std::size_t camera = 0);
    /// What the camera has recorded of a frame, if it was sent to its end.
    std::optional<nlohmann::json> sentFrame(std::uint32_t lowNumber, unsigned knownBits,
                                            std::size_t camera = 0);

private:
    zrnsim::ControlClient m_client;
};

} // namespace survival
