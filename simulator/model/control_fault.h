#pragma once

#include "model/controls.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zrnsim
{

/// How a control transfer ends.
enum class ControlStatus : std::uint8_t {
    Done,       ///< acknowledged, with data for a device-to-host request
    Stalled,    ///< the device refused the request
    Failed,     ///< the bus lost it (a protocol error)
    Unanswered, ///< the device never answers
};

/// A control request named in the terms of the UVC standard.
struct RequestName {
    std::string request; ///< "get-cur", "get-descriptor", ..., or the number
    std::string target;  ///< control name, "probe", "commit", "device", "interface", "endpoint"
};

/// Names a request.
RequestName nameOf(const SetupPacket& setup);

/// The words that nameOf() gives what it knows; it numbers the others.
std::vector<std::string_view> requestNames();
std::vector<std::string_view> targetNames();

/// Makes matching control requests misbehave.
struct ControlFault {
    enum class Action : std::uint8_t {
        Stall,
        Fail,
        Ignore, ///< leave unanswered
        Delay,
        Resize, ///< answer with `length` bytes, cut or padded with zeros
        Value,  ///< answer with the bytes of `value` instead of the real ones
        Forget, ///< acknowledge a write without carrying it out
    };

    Action action = Action::Stall;
    std::string request; ///< as in RequestName; empty matches every request
    std::string target;  ///< as in RequestName; empty matches every class request
    int requests = 1;    ///< how many further requests are hit, negative: all
    std::chrono::milliseconds delay{0};
    std::size_t length = 0;
    std::uint32_t value = 0;

    bool matches(const SetupPacket& setup, const RequestName& name) const;
};

} // namespace zrnsim
