#include "umockdev/usbfs_camera.h"

#include <cerrno>
#include <utility>

namespace zrnsim
{

std::optional<unsigned> UsbfsCamera::interfaceOf(const UrbHeader& request) const
{
    return request.endpoint == topology::streamingEndpoint
               ? std::optional<unsigned>(topology::streamingInterface)
               : std::nullopt;
}

bool UsbfsCamera::hasInterface(unsigned interface) const
{
    return interface <= topology::streamingInterface;
}

std::uint8_t UsbfsCamera::settingOf(unsigned interface) const
{
    return interface == topology::streamingInterface ? m_camera.alternateSetting() : 0;
}

long UsbfsCamera::admit(const Urb& urb)
{
    const bool isBulk = urb.request.type == USBDEVFS_URB_TYPE_BULK;
    const bool isIso = urb.request.type == USBDEVFS_URB_TYPE_ISO;
    if ((!isBulk && !isIso) ||
        endpointCapacity(m_camera.config(), m_camera.alternateSetting()) == 0) {
        return -ENOENT;
    }
    if (isBulk != (m_pipe == StreamPipe::Bulk)) {
        return -EINVAL;
    }
    return m_camera.takeSubmissionRefusal() ? -ENOMEM : 0;
}

bool UsbfsCamera::serve(UsbfsClient& client, UrbPosition urb)
{
    if (m_camera.isEndpointHalted()) {
        m_camera.noteStall();
        complete(client, urb, -EPIPE);
        return true;
    }
    if (const auto fault = m_camera.takeTransferFault()) {
        complete(client, urb, urbStatus(*fault));
        return true;
    }
    if (m_pipe == StreamPipe::Isochronous) {
        return serveIsochronous(client, urb);
    }
    const auto piece = m_camera.nextPiece(urb->length());
    if (!piece) {
        return false;
    }
    urb->request.actualLength = static_cast<int>(piece->size());
    if (piece->startedFrame) {
        urb->startedFrames.push_back(*piece->startedFrame);
    }
    const bool isWritten = client.memory.write(urb->buffer(), piece->header(), piece->body());
    complete(client, urb, isWritten ? 0 : -EFAULT);
    return true;
}

/// Fills the packets with payloads; what finds no payload passes empty, in the bus's time.
bool UsbfsCamera::serveIsochronous(UsbfsClient& client, UrbPosition urb)
{
    std::vector<PayloadPiece> pieces;
    pieces.reserve(urb->packets.size());
    std::vector<ClientMemory::Placement> placements;
    placements.reserve(2 * urb->packets.size());
    std::uintptr_t target = urb->buffer();
    bool isDry = false;
    for (auto& packet : urb->packets) {
        packet.actual_length = 0;
        packet.status = 0;
        auto piece = isDry ? std::nullopt : m_camera.nextPiece(packet.length);
        isDry = !piece;
        if (piece) {
            packet.actual_length = static_cast<unsigned>(piece->size());
            const PayloadPiece& kept = pieces.emplace_back(std::move(*piece));
            if (kept.startedFrame) {
                urb->startedFrames.push_back(*kept.startedFrame);
            }
            placements.push_back({target, kept.header()});
            placements.push_back({target + kept.headerLength, kept.body()});
        }
        target += packet.length;
    }
    if (pieces.empty() && !isIsochronousSlotOver(*urb)) {
        return false;
    }
    complete(client, urb, client.memory.write(placements) ? 0 : -EFAULT);
    return true;
}

void UsbfsCamera::noteCompletion(const Urb& urb)
{
    if (urb.request.endpoint == topology::streamingEndpoint && urb.request.status == 0) {
        m_camera.noteTransfer();
    }
}

void UsbfsCamera::noteReap(const Urb& urb)
{
    for (const std::uint64_t frame : urb.startedFrames) {
        m_camera.noteTaken(frame);
    }
}

} // namespace zrnsim
