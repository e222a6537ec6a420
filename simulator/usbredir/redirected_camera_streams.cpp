// The streaming endpoint of a redirected camera, and when it has to be served.

#include "model/descriptors.h"
#include "usbredir/redirected_camera.h"

#include <algorithm>

namespace zrnsim
{

namespace
{

constexpr auto microframe = std::chrono::microseconds(125);

/// Packets are sent in groups of so much time, which the host's buffer levels out.
constexpr auto packetBatch = std::chrono::milliseconds(1);

/// A microframe without data is told to the host only this often. The host's buffer drops data
/// when more packets come in than its guest fetches, and a guest in emulation is slow.
constexpr std::uint64_t microframesPerEmptyPacket = 8;

/// An isochronous camera that is served later than this skips packets instead of catching up.
constexpr auto longestDelay = std::chrono::milliseconds(20);

/// Messages of any kind that may wait for a host that does not read. While there are as many,
/// isochronous packets are lost, as on a bus.
constexpr int queuedMessages = 1000;

std::uint8_t transferStatus(TransferFault fault)
{
    return fault == TransferFault::Overflow ? usb_redir_babble : usb_redir_ioerror;
}

} // namespace

std::optional<Clock::time_point> RedirectedCamera::deadline() const
{
    std::optional<Clock::time_point> earliest;
    const auto consider = [&earliest](Clock::time_point time) {
        earliest = earliest ? std::min(*earliest, time) : time;
    };
    for (const PendingControl& control : m_controls) {
        if (control.due) {
            consider(*control.due);
        }
    }
    if (m_isochronous) {
        consider(m_isochronous->due + packetBatch);
    }
    return earliest;
}

void RedirectedCamera::onBulk(std::uint64_t id, const usb_redir_bulk_packet_header& header)
{
    if (!m_isConnected) {
        return;
    }
    m_bulk.push_back({id, header});
    if (header.endpoint != topology::streamingEndpoint) {
        sendBulk(m_bulk.back(), usb_redir_inval, {});
        m_bulk.pop_back();
    }
}

void RedirectedCamera::serveBulk()
{
    while (!m_bulk.empty()) {
        const PendingBulk transfer = m_bulk.front();
        if (m_camera.isEndpointHalted()) {
            m_camera.noteStall();
            sendBulk(transfer, usb_redir_stall, {});
        } else if (const auto fault = m_camera.takeTransferFault()) {
            sendBulk(transfer, transferStatus(*fault), {});
        } else if (const auto piece = m_camera.nextPiece(transfer.length())) {
            sendBulk(transfer, usb_redir_success, *piece);
            m_camera.noteTransfer();
        } else {
            return;
        }
        m_bulk.pop_front();
    }
}

void RedirectedCamera::sendBulk(const PendingBulk& transfer, std::uint8_t status,
                                const PayloadPiece& piece)
{
    usb_redir_bulk_packet_header header = transfer.header;
    header.status = status;
    header.length = static_cast<std::uint16_t>(piece.size() & 0xffffU);
    header.length_high = static_cast<std::uint16_t>(piece.size() >> 16U);
    usbredirparser_send_bulk_packet(m_parser.get(), transfer.id, &header, gather(piece),
                                    static_cast<int>(piece.size()));
}

/// The piece in one run of bytes, or null when it is empty.
std::uint8_t* RedirectedCamera::gather(const PayloadPiece& piece)
{
    const ByteView header = piece.header();
    const ByteView body = piece.body();
    m_packet.assign(header.begin(), header.end());
    m_packet.insert(m_packet.end(), body.begin(), body.end());
    return m_packet.empty() ? nullptr : m_packet.data();
}

void RedirectedCamera::onStartIsochronous(std::uint64_t id, std::uint8_t endpoint)
{
    const bool isStream = m_isConnected && endpoint == topology::streamingEndpoint &&
                          m_camera.config().pipe == StreamPipe::Isochronous;
    if (isStream) {
        m_isochronous = {endpoint, endpointCapacity(m_camera.config(), m_camera.alternateSetting()),
                         Clock::now()};
    }
    usb_redir_iso_stream_status_header status{
        static_cast<std::uint8_t>(isStream ? usb_redir_success : usb_redir_inval), endpoint};
    usbredirparser_send_iso_stream_status(m_parser.get(), id, &status);
}

void RedirectedCamera::onStopIsochronous(std::uint64_t id, std::uint8_t endpoint)
{
    m_isochronous.reset();
    usb_redir_iso_stream_status_header status{usb_redir_success, endpoint};
    usbredirparser_send_iso_stream_status(m_parser.get(), id, &status);
}

/// At most one packet for each microframe that has passed.
void RedirectedCamera::serveIsochronous()
{
    if (!m_isochronous) {
        return;
    }
    const auto now = Clock::now();
    m_isochronous->due = std::max(m_isochronous->due, now - longestDelay);
    while (m_isochronous->due <= now) {
        m_isochronous->due += microframe;
        if (usbredirparser_has_data_to_write(m_parser.get()) < queuedMessages) {
            sendIsochronousPacket();
        }
    }
}

void RedirectedCamera::sendIsochronousPacket()
{
    usb_redir_iso_packet_header header{};
    header.endpoint = m_isochronous->endpoint;
    PayloadPiece piece;
    if (const auto fault = m_camera.takeTransferFault()) {
        header.status = transferStatus(*fault);
    } else if (const auto next = m_camera.nextPiece(m_isochronous->packetSize)) {
        piece = *next;
        m_camera.noteTransfer();
        m_isochronous->idle = 0;
    } else if (++m_isochronous->idle % microframesPerEmptyPacket != 0) {
        return;
    }
    header.length = static_cast<std::uint16_t>(piece.size());
    usbredirparser_send_iso_packet(m_parser.get(), m_isochronous->packet++, &header, gather(piece),
                                   static_cast<int>(piece.size()));
}

} // namespace zrnsim
