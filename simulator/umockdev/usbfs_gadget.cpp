#include "umockdev/usbfs_gadget.h"

#include <cerrno>

namespace zrnsim
{

std::optional<unsigned> UsbfsGadget::interfaceOf(const UrbHeader& request) const
{
    switch (request.endpoint) {
    case Gadget::bulkOut:
    case Gadget::bulkIn:
    case Gadget::interruptIn:
        return Gadget::dataInterface;
    case Gadget::isochronousIn:
        return Gadget::isochronousInterface;
    default:
        return std::nullopt;
    }
}

bool UsbfsGadget::hasInterface(unsigned interface) const
{
    return interface < Gadget::interfaces;
}

std::uint8_t UsbfsGadget::settingOf(unsigned interface) const
{
    return interface == Gadget::isochronousInterface ? m_gadget.isochronousSetting() : 0;
}

long UsbfsGadget::admit(const Urb& urb)
{
    if (urb.request.endpoint != Gadget::isochronousIn) {
        return urb.request.type == USBDEVFS_URB_TYPE_ISO ? -EINVAL : 0;
    }
    if (m_gadget.isochronousSetting() == 0) {
        return -ENOENT;
    }
    return urb.request.type == USBDEVFS_URB_TYPE_ISO ? 0 : -EINVAL;
}

bool UsbfsGadget::serve(UsbfsClient& client, UrbPosition urb)
{
    const std::uint8_t endpoint = urb->request.endpoint;
    if (m_gadget.isHalted(endpoint)) {
        complete(client, urb, -EPIPE);
        return true;
    }
    if (endpoint == Gadget::isochronousIn) {
        return serveIsochronous(client, urb);
    }
    if (endpoint == Gadget::bulkOut) {
        Bytes data(urb->length());
        const bool isRead = client.memory.read(urb->buffer(), data);
        const auto fault = m_gadget.put(data);
        urb->request.actualLength = fault ? 0 : static_cast<int>(data.size());
        complete(client, urb, fault ? urbStatus(*fault) : isRead ? 0 : -EFAULT);
        return true;
    }
    const auto answer = m_gadget.take(endpoint, urb->length());
    if (!answer) {
        return false;
    }
    urb->request.actualLength = static_cast<int>(answer->data.size());
    const bool isWritten = client.memory.write(urb->buffer(), answer->data);
    complete(client, urb, answer->fault ? urbStatus(*answer->fault) : isWritten ? 0 : -EFAULT);
    return true;
}

/// Every packet takes its time on the bus, with a message or without.
bool UsbfsGadget::serveIsochronous(UsbfsClient& client, UrbPosition urb)
{
    if (!isIsochronousSlotOver(*urb)) {
        return false;
    }
    bool isWritten = true;
    std::uintptr_t target = urb->buffer();
    for (auto& packet : urb->packets) {
        const auto answer = m_gadget.take(urb->request.endpoint, packet.length);
        packet.status =
            answer && answer->fault ? static_cast<unsigned>(urbStatus(*answer->fault)) : 0;
        packet.actual_length = answer ? static_cast<unsigned>(answer->data.size()) : 0;
        isWritten = isWritten && (!answer || client.memory.write(target, answer->data));
        target += packet.length;
    }
    complete(client, urb, isWritten ? 0 : -EFAULT);
    return true;
}

} // namespace zrnsim
