#pragma once

#include "model/bus.h"

#include <nlohmann/json_fwd.hpp>

#include <string>

namespace zrnsim
{

/// Carries out the commands of the control socket. Thread safety: thread-safe; it keeps no state.
class CommandProcessor
{
public:
    CommandProcessor(CameraList& cameras, Bus& bus)
        : m_cameras(cameras)
        , m_bus(bus)
    {
    }

    /// Answers one request object: {"ok": true, ...} or {"ok": false, "error": "..."}.
    nlohmann::json execute(const nlohmann::json& request);

    /// The same for one line of text.
    std::string executeLine(const std::string& line);

private:
    void check(const nlohmann::json& request) const;
    nlohmann::json run(const nlohmann::json& request);

    CameraList& m_cameras;
    Bus& m_bus;
};

} // namespace zrnsim
