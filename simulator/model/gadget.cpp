#include "model/gadget.h"

#include <algorithm>
#include <utility>

namespace zrnsim
{

namespace
{

constexpr std::uint16_t bulkPacket = 512;
constexpr std::uint32_t fnvOffset = 2166136261U;
constexpr std::uint32_t fnvPrime = 16777619U;

Bytes deviceDescriptor()
{
    Bytes bytes;
    ByteWriter(bytes).u8(18).u8(usb::descriptorDevice).u16(0x0200).u8(0).u8(0).u8(0).u8(64);
    ByteWriter(bytes).u16(Gadget::vendorId).u16(Gadget::productId).u16(0x0100);
    ByteWriter(bytes).u8(1).u8(2).u8(3).u8(1);
    return bytes;
}

void appendInterface(Bytes& bytes, std::uint8_t number, std::uint8_t setting,
                     std::uint8_t endpoints, std::uint8_t usbClass, std::uint8_t subclass)
{
    ByteWriter(bytes).u8(9).u8(usb::descriptorInterface).u8(number).u8(setting).u8(endpoints);
    ByteWriter(bytes).u8(usbClass).u8(subclass).u8(0).u8(0);
}

void appendEndpoint(Bytes& bytes, std::uint8_t address, std::uint8_t kind, std::uint16_t packet,
                    std::uint8_t interval)
{
    ByteWriter(bytes).u8(7).u8(usb::descriptorEndpoint).u8(address).u8(kind).u16(packet);
    ByteWriter(bytes).u8(interval);
}

/// Parts of cameras where no camera is: what a driver might take for broken, and repair.
Bytes configurationDescriptor()
{
    constexpr std::uint8_t vendorClass = 0xff;
    constexpr std::uint8_t videoClass = 14;
    Bytes bytes;
    ByteWriter(bytes).u8(9).u8(usb::descriptorConfiguration).u16(0).u8(Gadget::interfaces);
    ByteWriter(bytes).u8(topology::configuration).u8(0).u8(0x80).u8(50);
    ByteWriter(bytes).u8(3).u8(0x09).u8(0x03); // OTG

    appendInterface(bytes, Gadget::dataInterface, 0, 3, vendorClass, vendorClass);
    ByteWriter(bytes).u8(5).u8(usb::descriptorClassInterface).u8(0x06).u8(0xaa).u8(0xbb);
    appendEndpoint(bytes, Gadget::bulkOut, 2, bulkPacket, 0);
    appendEndpoint(bytes, Gadget::bulkIn, 2, bulkPacket, 0);
    appendEndpoint(bytes, Gadget::interruptIn, 3, 64, 4);

    // A frame without a format and with continuous intervals.
    appendInterface(bytes, Gadget::isochronousInterface, 0, 0, videoClass, 2);
    ByteWriter(bytes).u8(38).u8(usb::descriptorClassInterface).u8(0x05).u8(1).u8(0);
    ByteWriter(bytes).u16(64).u16(48).u32(1000).u32(2000).u32(6144).u32(333333).u8(0);
    ByteWriter(bytes).u32(333333).u32(666666).u32(1);
    appendInterface(bytes, Gadget::isochronousInterface, 1, 1, videoClass, 2);
    appendEndpoint(bytes, Gadget::isochronousIn, 5, 1024, 1);

    // A header that counts interfaces which are not there, and a selector.
    appendInterface(bytes, 2, 0, 0, videoClass, 1);
    ByteWriter(bytes).u8(13).u8(usb::descriptorClassInterface).u8(0x01).u16(0x0100).u16(100);
    ByteWriter(bytes).u32(1000000).u8(7).u8(9);
    ByteWriter(bytes).u8(7).u8(usb::descriptorClassInterface).u8(0x04).u8(4).u8(200).u8(1).u8(0);

    bytes[2] = static_cast<std::uint8_t>(bytes.size() & 0xffU);
    bytes[3] = static_cast<std::uint8_t>(bytes.size() >> 8U);
    return bytes;
}

} // namespace

Gadget::Gadget(unsigned ordinal)
    : m_ordinal(ordinal)
{
    reset();
}

DescriptorSet Gadget::descriptors() const
{
    DescriptorSet set;
    set.device = deviceDescriptor();
    set.configuration = configurationDescriptor();
    std::string serial = std::to_string(m_ordinal);
    serial.insert(serial.begin(), 'G');
    set.strings = {"Elsewhere", "Gadget", serial};
    return set;
}

void Gadget::reset()
{
    m_messages.clear();
    m_faults.clear();
    m_halted.clear();
    m_kept.clear();
    m_received = 0;
    m_receivedHash = fnvOffset;
    m_setting = 0;
}

ControlReply Gadget::control(const SetupPacket& setup, ByteView out)
{
    ControlReply reply;
    {
        const std::lock_guard lock(m_mutex);
        switch (setup.type()) {
        case usb::typeStandard:
            reply = standardRequest(setup);
            break;
        case usb::typeClass:
            reply.status = setup.isDeviceToHost() ? ControlStatus::Stalled : ControlStatus::Done;
            m_kept.assign(out.begin(), out.end());
            break;
        default:
            reply = vendorRequest(setup, out);
            break;
        }
    }
    reply.data.resize(std::min<std::size_t>(reply.data.size(), setup.length));
    const std::lock_guard lock(m_handlerMutex);
    if (setup.type() != usb::typeStandard && setup.request == Leave && m_leave) {
        m_leave(std::chrono::milliseconds(setup.index));
    }
    if (m_wake) {
        m_wake();
    }
    return reply;
}

ControlReply Gadget::standardRequest(const SetupPacket& setup)
{
    switch (setup.request) {
    case usb::getDescriptor:
        switch (setup.valueHigh()) {
        case usb::descriptorDevice:
            return {ControlStatus::Done, deviceDescriptor(), {}};
        case usb::descriptorConfiguration:
            return {ControlStatus::Done, configurationDescriptor(), {}};
        case usb::descriptorString:
            return {
                ControlStatus::Done, stringDescriptor(descriptors().strings, setup.valueLow()), {}};
        default:
            return {ControlStatus::Stalled, {}, {}};
        }
    case usb::getStatus:
        return {ControlStatus::Done, {0, 0}, {}};
    case usb::getConfiguration:
        return {ControlStatus::Done, {topology::configuration}, {}};
    case usb::setConfiguration:
        return {};
    case usb::clearFeature:
        m_halted.erase(setup.indexLow());
        return {};
    case usb::setInterface:
        if (setup.index == isochronousInterface && setup.value <= 1) {
            m_setting = setup.valueLow();
            return {};
        }
        return {setup.value == 0 ? ControlStatus::Done : ControlStatus::Stalled, {}, {}};
    default:
        return {ControlStatus::Stalled, {}, {}};
    }
}

ControlReply Gadget::vendorRequest(const SetupPacket& setup, ByteView out)
{
    ControlReply reply{ControlStatus::Done, {}, std::chrono::milliseconds(setup.value)};
    const std::uint8_t endpoint = setup.indexLow();
    switch (setup.request) {
    case Keep:
        m_kept.assign(out.begin(), out.end());
        break;
    case Recall:
        reply.data = m_kept;
        break;
    case Send: {
        const std::uint32_t count = readLittleEndian(out, 4, 4);
        for (std::uint32_t i = 0; i < count; ++i) {
            m_messages[endpoint].push_back(
                {Bytes(out.begin() + 8, out.end()), readLittleEndian(out, 0, 4), i, 0});
        }
        break;
    }
    case Halt:
        m_halted.insert(endpoint);
        break;
    case Fail:
        ++m_faults[endpoint];
        break;
    case Reset:
        reset();
        break;
    case Account:
        ByteWriter(reply.data).u32(m_received).u32(m_receivedHash);
        break;
    case Ignore:
        reply.status = ControlStatus::Unanswered;
        break;
    case Leave:
        break;
    default:
        reply.status = ControlStatus::Stalled;
        break;
    }
    return reply;
}

std::optional<TransferFault> Gadget::takeFault(std::uint8_t endpoint)
{
    int& faults = m_faults[endpoint];
    if (faults == 0) {
        return std::nullopt;
    }
    --faults;
    return TransferFault::Protocol;
}

std::optional<Gadget::Answer> Gadget::take(std::uint8_t endpoint, std::size_t length)
{
    const std::lock_guard lock(m_mutex);
    if (const auto fault = takeFault(endpoint)) {
        return Answer{fault, {}};
    }
    std::deque<Message>& messages = m_messages[endpoint];
    if (messages.empty()) {
        return std::nullopt;
    }
    Message& message = messages.front();
    const std::size_t size = std::min<std::size_t>(length, message.length - message.sent);
    Answer answer;
    answer.data.resize(size);
    for (std::size_t i = 0; i < size; ++i) {
        const std::size_t place = message.sent + i;
        answer.data[i] = place < message.head.size()
                             ? message.head[place]
                             : static_cast<std::uint8_t>((place * 7 + message.number) & 0xffU);
    }
    message.sent += static_cast<std::uint32_t>(size);
    const bool isWhole = message.sent == message.length;
    // More than the host has room for comes in the same packet.
    if (!isWhole && length % bulkPacket != 0) {
        answer.fault = TransferFault::Overflow;
    }
    if (isWhole || answer.fault) {
        messages.pop_front();
    }
    return answer;
}

std::optional<TransferFault> Gadget::put(ByteView data)
{
    const std::lock_guard lock(m_mutex);
    if (const auto fault = takeFault(bulkOut)) {
        return fault;
    }
    m_received += static_cast<std::uint32_t>(data.size());
    for (const std::uint8_t byte : data) {
        m_receivedHash = (m_receivedHash ^ byte) * fnvPrime;
    }
    return std::nullopt;
}

bool Gadget::isHalted(std::uint8_t endpoint) const
{
    const std::lock_guard lock(m_mutex);
    return m_halted.contains(endpoint);
}

std::uint8_t Gadget::isochronousSetting() const
{
    const std::lock_guard lock(m_mutex);
    return m_setting;
}

void Gadget::attach(std::optional<std::uint64_t>)
{
    const std::lock_guard lock(m_mutex);
    reset();
}

void Gadget::detach()
{
    const std::lock_guard lock(m_mutex);
    reset();
}

void Gadget::setWakeHandler(std::function<void()> handler)
{
    const std::lock_guard lock(m_handlerMutex);
    m_wake = std::move(handler);
}

void Gadget::setLeaveHandler(std::function<void(std::chrono::milliseconds)> handler)
{
    const std::lock_guard lock(m_handlerMutex);
    m_leave = std::move(handler);
}

} // namespace zrnsim
