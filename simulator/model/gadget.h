#pragma once

#include "model/usb_device.h"

#include <array>
#include <deque>
#include <map>
#include <mutex>
#include <set>

namespace zrnsim
{

/// A USB device 1234:5678 that is no camera, for tests of what else a process does with USB: an
/// endpoint of each kind, and descriptors that look like parts of a camera.
///
/// Its host writes its script: vendor requests to the device say what the endpoints send.
/// Thread safety: thread-safe.
class Gadget final : public UsbDevice
{
public:
    static constexpr std::uint16_t vendorId = 0x1234;
    static constexpr std::uint16_t productId = 0x5678;

    static constexpr std::uint8_t dataInterface = 0;
    static constexpr std::uint8_t isochronousInterface = 1; ///< its endpoint is in setting 1
    static constexpr std::uint8_t interfaces = 3;

    static constexpr std::uint8_t bulkOut = 0x01;
    static constexpr std::uint8_t bulkIn = 0x81;
    static constexpr std::uint8_t interruptIn = 0x82;
    static constexpr std::uint8_t isochronousIn = 0x83;

    /// Vendor requests, all to the device. wValue is the milliseconds to wait before the answer.
    enum Request : std::uint8_t {
        Keep = 1,    ///< keeps its data, as does every class request to an interface
        Recall = 2,  ///< answers with what was kept last
        Send = 3,    ///< endpoint wIndex sends messages: u32 length, u32 count, first bytes
        Halt = 4,    ///< halts endpoint wIndex
        Fail = 5,    ///< the next transfer of endpoint wIndex fails
        Reset = 6,   ///< as after power-up
        Account = 7, ///< answers with what bulkOut took: u32 bytes, u32 FNV-1a
        Ignore = 8,  ///< is never answered
        Leave = 9,   ///< leaves the bus, and is back wIndex ms later
    };

    /// @param ordinal from 1, makes the serial "G1", "G2", ...
    explicit Gadget(unsigned ordinal);

    DescriptorSet descriptors() const override;
    UsbSpeed speed() const override { return UsbSpeed::High; }
    ControlReply control(const SetupPacket& setup, ByteView out) override;
    void setWakeHandler(std::function<void()> handler) override;
    void attach(std::optional<std::uint64_t> serial) override;
    void detach() override;

    /// Called when the device wants to leave the bus for a time.
    void setLeaveHandler(std::function<void(std::chrono::milliseconds)> handler);

    bool isHalted(std::uint8_t endpoint) const;
    std::uint8_t isochronousSetting() const;

    /// The end of one transfer: data, or a fault.
    struct Answer {
        std::optional<TransferFault> fault;
        Bytes data;
    };
    /// What an endpoint sends in a transfer or packet of `length` bytes; nothing yet: nullopt.
    std::optional<Answer> take(std::uint8_t endpoint, std::size_t length);
    /// A transfer to bulkOut. @return its fault, if any
    std::optional<TransferFault> put(ByteView data);

private:
    struct Message {
        Bytes head;
        std::uint32_t length = 0;
        std::uint32_t number = 0;
        std::uint32_t sent = 0;
    };

    ControlReply standardRequest(const SetupPacket& setup);
    ControlReply vendorRequest(const SetupPacket& setup, ByteView out);
    std::optional<TransferFault> takeFault(std::uint8_t endpoint);
    void reset();

    const unsigned m_ordinal;
    mutable std::mutex m_mutex; ///< guards all that follows but the handlers
    std::map<std::uint8_t, std::deque<Message>> m_messages;
    std::map<std::uint8_t, int> m_faults;
    std::set<std::uint8_t> m_halted;
    Bytes m_kept;
    std::uint32_t m_received = 0;
    std::uint32_t m_receivedHash = 0;
    std::uint8_t m_setting = 0;

    std::mutex m_handlerMutex; ///< guards and is held across the handlers
    std::function<void()> m_wake;
    std::function<void(std::chrono::milliseconds)> m_leave;
};

} // namespace zrnsim
