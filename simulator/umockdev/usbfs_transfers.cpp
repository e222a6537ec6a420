#include "umockdev/usbfs_device.h"

#include <algorithm>
#include <cerrno>
#include <set>
#include <utility>

namespace zrnsim
{

namespace
{

constexpr std::size_t setupSize = 8;
constexpr int maxIsoPackets = 128;
constexpr auto microframe = std::chrono::microseconds(125);

SetupPacket parseSetup(ByteView data)
{
    const auto word = [&](std::size_t offset) {
        return static_cast<std::uint16_t>(readLittleEndian(data, offset, 2));
    };
    return {data[0], data[1], word(2), word(4), word(6)};
}

int controlStatus(ControlStatus status)
{
    switch (status) {
    case ControlStatus::Done:
        return 0;
    case ControlStatus::Stalled:
        return -EPIPE;
    case ControlStatus::Failed:
    case ControlStatus::Unanswered:
        return -EPROTO;
    }
    return -EPROTO;
}

} // namespace

int UsbfsDevice::urbStatus(TransferFault fault)
{
    return fault == TransferFault::Overflow ? -EOVERFLOW : -EPROTO;
}

long UsbfsDevice::submit(UsbfsClient& client, std::uintptr_t argument)
{
    Urb urb;
    urb.address = argument;
    if (!client.memory.readObject(argument, urb.request)) {
        return -EFAULT;
    }
    if (urb.request.bufferLength < 0) {
        return -EINVAL;
    }
    if (m_options.memoryLimit != 0 && m_submittedBytes + urb.length() > m_options.memoryLimit) {
        return -ENOMEM;
    }
    urb.id = m_nextUrb++;
    urb.request.actualLength = 0;
    urb.request.errorCount = 0;
    urb.request.status = 0;
    return urb.request.type == USBDEVFS_URB_TYPE_CONTROL ? submitControl(client, std::move(urb))
                                                         : submitData(client, std::move(urb));
}

long UsbfsDevice::submitControl(UsbfsClient& client, Urb urb)
{
    Bytes data(urb.length());
    if (data.size() < setupSize) {
        return -EINVAL;
    }
    if (!client.memory.read(urb.buffer(), data)) {
        return -EFAULT;
    }
    const SetupPacket setup = parseSetup(data);
    if (data.size() < setupSize + setup.length) {
        return -EINVAL;
    }
    if (isBusyFor(client, setup)) {
        return -EBUSY;
    }
    const ByteView out =
        setup.isDeviceToHost() ? ByteView() : ByteView(data).subspan(setupSize, setup.length);
    const std::uint64_t id = urb.id;
    m_submittedBytes += urb.length();
    urb.request.actualLength = setup.isDeviceToHost() ? 0 : setup.length;
    client.pending.push_back(std::move(urb));

    ControlReply reply = m_device.control(setup, out);
    if (reply.status == ControlStatus::Unanswered) {
        return 0; // pending until it is discarded
    }
    if (reply.delay.count() == 0) {
        finishControl(client, id, reply);
        return 0;
    }
    const auto delay = reply.delay;
    runOnWorker(
        [self = shared_from_this(), handle = client.handle, id, late = std::move(reply)] {
            if (UsbfsClient* const waiting = self->find(handle)) {
                self->finishControl(*waiting, id, late);
            }
        },
        delay);
    return 0;
}

void UsbfsDevice::finishControl(UsbfsClient& client, std::uint64_t id, const ControlReply& reply)
{
    const auto urb = std::find_if(client.pending.begin(), client.pending.end(),
                                  [&](const Urb& candidate) { return candidate.id == id; });
    if (urb == client.pending.end()) {
        return; // discarded meanwhile
    }
    int status = controlStatus(reply.status);
    if (status != 0) {
        urb->request.actualLength = 0;
    } else if (!reply.data.empty()) {
        urb->request.actualLength = static_cast<int>(reply.data.size());
        status = client.memory.write(urb->buffer() + setupSize, reply.data) ? 0 : -EFAULT;
    }
    complete(client, urb, status);
    updateGate();
}

/// Requests to an interface need it, or need it to be free.
bool UsbfsDevice::isBusyFor(const UsbfsClient& client, const SetupPacket& setup)
{
    if (setup.recipient() == usb::recipientInterface) {
        return isClaimedByOther(client, setup.indexLow());
    }
    if (setup.recipient() == usb::recipientEndpoint) {
        UrbHeader request{};
        request.endpoint = setup.indexLow();
        const auto interface = interfaceOf(request);
        return interface && isClaimedByOther(client, *interface);
    }
    return false;
}

long UsbfsDevice::controlTransfer(UsbfsClient& client, std::uintptr_t argument)
{
    usbdevfs_ctrltransfer transfer{};
    if (!client.memory.readObject(argument, transfer)) {
        return -EFAULT;
    }
    const SetupPacket setup{transfer.bRequestType, transfer.bRequest, transfer.wValue,
                            transfer.wIndex, transfer.wLength};
    const auto buffer = reinterpret_cast<std::uintptr_t>(transfer.data);
    Bytes out(setup.isDeviceToHost() ? 0 : setup.length);
    if (!out.empty() && !client.memory.read(buffer, out)) {
        return -EFAULT;
    }
    if (isBusyFor(client, setup)) {
        return -EBUSY;
    }
    ControlReply reply = m_device.control(setup, out);
    const auto timeout = std::chrono::milliseconds(transfer.timeout);
    const bool isEndless = transfer.timeout == 0;
    const bool isLate =
        reply.status == ControlStatus::Unanswered || (!isEndless && reply.delay >= timeout);
    if (isLate && isEndless) {
        return UsbfsClient::deferred;
    }
    const auto finish = [=](const UsbfsClient& waiting) -> long {
        if (isLate) {
            return -ETIMEDOUT;
        }
        if (reply.status != ControlStatus::Done) {
            return controlStatus(reply.status);
        }
        if (!reply.data.empty() && !waiting.memory.write(buffer, reply.data)) {
            return -EFAULT;
        }
        return static_cast<long>(setup.isDeviceToHost() ? reply.data.size() : setup.length);
    };
    const auto delay = isLate ? timeout : reply.delay;
    if (delay.count() == 0) {
        return finish(client);
    }
    runOnWorker(
        [self = shared_from_this(), handle = client.handle, finish] {
            if (UsbfsClient* const waiting = self->find(handle)) {
                waiting->answer(self->m_unplugged ? -ENODEV : finish(*waiting));
            }
        },
        delay);
    return UsbfsClient::deferred;
}

long UsbfsDevice::submitData(UsbfsClient& client, Urb urb)
{
    const auto interface = interfaceOf(urb.request);
    if (!interface) {
        return -ENOENT;
    }
    if (!client.claimed.contains(*interface) && claim(client, *interface) != 0) {
        return -EBUSY;
    }
    if (urb.request.type == USBDEVFS_URB_TYPE_ISO) {
        const int count = urb.request.numberOfPackets;
        if (count < 1 || count > maxIsoPackets) {
            return -EINVAL;
        }
        urb.packets.resize(static_cast<std::size_t>(count));
        const std::size_t bytes = urb.packets.size() * sizeof urb.packets[0];
        if (!client.memory.read(urb.address + sizeof urb.request,
                                {reinterpret_cast<std::uint8_t*>(urb.packets.data()), bytes})) {
            return -EFAULT;
        }
    }
    if (const long refused = admit(urb)) {
        return refused;
    }
    m_submittedBytes += urb.length();
    client.pending.push_back(std::move(urb));
    pump();
    return 0;
}

/// Lets each endpoint answer request blocks, in their order, for as long as it can.
void UsbfsDevice::pump()
{
    sweep();
    std::set<unsigned char> waiting;
    for (const auto& client : m_clients) {
        for (auto urb = client->pending.begin(); urb != client->pending.end();) {
            const auto current = urb++;
            const unsigned char endpoint = current->request.endpoint;
            if (current->request.type != USBDEVFS_URB_TYPE_CONTROL && !waiting.contains(endpoint) &&
                !serve(*client, current)) {
                waiting.insert(endpoint);
            }
        }
    }
    updateGate();
}

bool UsbfsDevice::isIsochronousSlotOver(const Urb& urb)
{
    const auto now = std::chrono::steady_clock::now();
    if (now >= m_isoSlot) {
        const auto packets = static_cast<int>(urb.packets.size());
        m_isoSlot = std::max(m_isoSlot, now - packets * microframe) + packets * microframe;
        return true;
    }
    if (!m_isoTimer) {
        m_isoTimer = true;
        const auto wait = std::chrono::ceil<std::chrono::milliseconds>(m_isoSlot - now);
        runOnWorker(
            [self = shared_from_this()] {
                self->m_isoTimer = false;
                self->pump();
            },
            wait);
    }
    return false;
}

void UsbfsDevice::complete(UsbfsClient& client, UrbPosition urb, int status)
{
    urb->request.status = status;
    m_submittedBytes -= urb->length();
    noteCompletion(*urb);
    client.completed.push_back(std::move(*urb));
    client.pending.erase(urb);
    answerBlockedReap(client);
}

void UsbfsDevice::answerBlockedReap(UsbfsClient& client)
{
    if (client.reapArgument != 0 && (!client.completed.empty() || m_unplugged)) {
        client.answer(reap(client, std::exchange(client.reapArgument, 0)));
    }
}

void UsbfsDevice::endAll(UsbfsClient& client, int status)
{
    while (!client.pending.empty()) {
        complete(client, client.pending.begin(), status);
    }
}

void UsbfsDevice::updateGate()
{
    m_gate.setReady(std::any_of(m_clients.begin(), m_clients.end(),
                                [](const auto& client) { return !client->completed.empty(); }));
}

long UsbfsDevice::discard(UsbfsClient& client, std::uintptr_t address)
{
    const auto urb = std::find_if(client.pending.begin(), client.pending.end(),
                                  [&](const Urb& pending) { return pending.address == address; });
    if (urb == client.pending.end()) {
        return m_unplugged ? -ENODEV : -EINVAL;
    }
    complete(client, urb, -ENOENT);
    updateGate();
    return 0;
}

/// Hands a finished request block back: its results, then its address.
long UsbfsDevice::reap(UsbfsClient& client, std::uintptr_t argument)
{
    if (client.completed.empty()) {
        return m_unplugged ? -ENODEV : -EAGAIN;
    }
    const Urb urb = std::move(client.completed.front());
    client.completed.pop_front();
    updateGate();
    const auto bytesOf = [](const auto* data, std::size_t count) {
        return std::span(reinterpret_cast<const std::uint8_t*>(data), count * sizeof *data);
    };
    const bool isWritten = client.memory.write(urb.address, bytesOf(&urb.request, 1),
                                               bytesOf(urb.packets.data(), urb.packets.size())) &&
                           client.memory.writeObject(argument, urb.address);
    noteReap(urb);
    return isWritten ? 0 : -EFAULT;
}

} // namespace zrnsim
