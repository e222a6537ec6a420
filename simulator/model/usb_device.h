#pragma once

#include "model/control_fault.h"
#include "model/descriptors.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

namespace zrnsim
{

/// Answer of a device to one control transfer.
struct ControlReply {
    ControlStatus status = ControlStatus::Done;
    Bytes data;
    std::chrono::milliseconds delay{0}; ///< to be waited before the answer is given
};

/// How a transfer on an endpoint can fail.
enum class TransferFault : std::uint8_t {
    Protocol, ///< bus error, EPROTO on Linux
    Overflow, ///< babble, EOVERFLOW on Linux
};

/// What all devices have in common for whoever carries their transfers. Thread safety: thread-safe.
class UsbDevice
{
public:
    UsbDevice() = default;
    virtual ~UsbDevice() = default;
    UsbDevice(const UsbDevice&) = delete;
    UsbDevice& operator=(const UsbDevice&) = delete;

    virtual DescriptorSet descriptors() const = 0;
    virtual UsbSpeed speed() const = 0;

    virtual ControlReply control(const SetupPacket& setup, ByteView out) = 0;

    /// Called whenever an endpoint may have become able to answer. The handler must not call the
    /// device. Once this returns, the handler that was set before is not running any more.
    virtual void setWakeHandler(std::function<void()> handler) = 0;

    /// Power-up after the cable was plugged in, with another serial if one is given.
    virtual void attach(std::optional<std::uint64_t> serial) = 0;

    /// The cable was pulled.
    virtual void detach() = 0;
};

} // namespace zrnsim
