#include "usbredir/redirected_camera.h"

#include "model/descriptors.h"
#include "usbredir/redirected_endpoints.h"

#include <algorithm>
#include <utility>

namespace zrnsim
{

namespace
{

constexpr std::uint8_t standardToDevice = 0x00;
constexpr std::uint8_t standardToInterface = 0x01;
constexpr std::uint8_t deviceToHost = 0x80;

std::uint8_t transferStatus(ControlStatus status)
{
    switch (status) {
    case ControlStatus::Done:
        return usb_redir_success;
    case ControlStatus::Stalled:
        return usb_redir_stall;
    case ControlStatus::Failed:
    case ControlStatus::Unanswered:
        return usb_redir_ioerror;
    }
    return usb_redir_ioerror;
}

/// A standard request without a data stage, or with one byte towards the host.
SetupPacket standardRequest(std::uint8_t requestType, std::uint8_t request, std::uint8_t value,
                            std::uint8_t index)
{
    const std::uint16_t length = (requestType & deviceToHost) != 0 ? 1 : 0;
    return {requestType, request, value, index, length};
}

std::uint8_t firstByte(const ControlReply& reply)
{
    return reply.data.empty() ? 0 : reply.data.front();
}

} // namespace

RedirectedCamera::RedirectedCamera(Camera& camera, int socket, bool isPlugged)
    : m_camera(camera)
    , m_socket(socket)
    , m_parser(usbredirparser_create(), usbredirparser_destroy)
    , m_isPlugged(isPlugged)
{
    m_parser->priv = this;
    registerCallbacks(*m_parser);
    std::uint32_t capabilities[USB_REDIR_CAPS_SIZE]{};
    for (const int capability :
         {usb_redir_cap_connect_device_version, usb_redir_cap_device_disconnect_ack,
          usb_redir_cap_ep_info_max_packet_size, usb_redir_cap_64bits_ids,
          usb_redir_cap_32bits_bulk_length}) {
        usbredirparser_caps_set_cap(capabilities, capability);
    }
    usbredirparser_init(m_parser.get(), "zrnsim", capabilities, USB_REDIR_CAPS_SIZE,
                        usbredirparser_fl_usb_host);
}

bool RedirectedCamera::receive()
{
    // A packet that makes no sense is skipped; the parser has logged it.
    return usbredirparser_do_read(m_parser.get()) != usbredirparser_read_io_error;
}

bool RedirectedCamera::send()
{
    return usbredirparser_do_write(m_parser.get()) == 0;
}

bool RedirectedCamera::wantsToSend() const
{
    return usbredirparser_has_data_to_write(m_parser.get()) > 0;
}

void RedirectedCamera::serve()
{
    const auto now = Clock::now();
    for (auto control = m_controls.begin(); control != m_controls.end();) {
        const auto current = control++;
        if (current->due && *current->due <= now) {
            current->send(current->reply);
            m_controls.erase(current);
        }
    }
    serveBulk();
    serveIsochronous();
}

void RedirectedCamera::onHello()
{
    m_isGreeted = true;
    connect();
}

void RedirectedCamera::connect()
{
    if (!m_isPlugged || !m_isGreeted || m_isConnected || m_awaitsAck) {
        return;
    }
    const CameraConfig config = m_camera.config();
    const DescriptorSet descriptors = m_camera.descriptors();
    auto interfaces = interfaceInfo(descriptors.configuration);
    usbredirparser_send_interface_info(m_parser.get(), &interfaces);
    sendEndpoints();

    usb_redir_device_connect_header device{};
    device.speed = config.speed == UsbSpeed::Super ? usb_redir_speed_super : usb_redir_speed_high;
    device.device_class = descriptors.device[4];
    device.device_subclass = descriptors.device[5];
    device.device_protocol = descriptors.device[6];
    device.vendor_id = config.vendorId;
    device.product_id = config.productId;
    device.device_version_bcd =
        static_cast<std::uint16_t>(readLittleEndian(descriptors.device, 12, 2));
    usbredirparser_send_device_connect(m_parser.get(), &device);
    m_isConnected = true;
}

void RedirectedCamera::plug()
{
    m_isPlugged = true;
    connect();
}

void RedirectedCamera::unplug()
{
    m_isPlugged = false;
    dropTransfers();
    if (!std::exchange(m_isConnected, false)) {
        return;
    }
    usbredirparser_send_device_disconnect(m_parser.get());
    m_awaitsAck =
        usbredirparser_peer_has_cap(m_parser.get(), usb_redir_cap_device_disconnect_ack) != 0;
}

void RedirectedCamera::onDisconnectAck()
{
    m_awaitsAck = false;
    connect();
}

/// Transfers under way when the cable is pulled, or that cross it, end without an answer: the host
/// has ended them on its side.
void RedirectedCamera::dropTransfers()
{
    m_controls.clear();
    m_bulk.clear();
    m_isochronous.reset();
}

void RedirectedCamera::onReset()
{
    dropTransfers();
    if (m_isConnected) {
        m_camera.control(
            standardRequest(standardToDevice, usb::setConfiguration, topology::configuration, 0),
            {});
    }
}

/// Lets the camera answer a control request and sends the answer, at once or when it is due.
void RedirectedCamera::forward(std::uint64_t id, const SetupPacket& setup, ByteView out,
                               SendReply send)
{
    if (!m_isConnected) {
        return;
    }
    ControlReply reply = m_camera.control(setup, out);
    if (reply.status != ControlStatus::Unanswered && reply.delay.count() == 0) {
        send(reply);
        return;
    }
    std::optional<Clock::time_point> due;
    if (reply.status != ControlStatus::Unanswered) {
        due = Clock::now() + reply.delay;
    }
    m_controls.push_back({id, due, std::move(reply), std::move(send)});
}

void RedirectedCamera::onControl(std::uint64_t id, usb_redir_control_packet_header header,
                                 ByteView out)
{
    forward(id, {header.requesttype, header.request, header.value, header.index, header.length},
            out, [this, id, header](const ControlReply& reply) { sendControl(id, header, reply); });
}

void RedirectedCamera::sendControl(std::uint64_t id, usb_redir_control_packet_header header,
                                   const ControlReply& reply)
{
    const bool isDone = reply.status == ControlStatus::Done;
    const bool isIn = (header.requesttype & deviceToHost) != 0;
    Bytes data = isDone && isIn ? reply.data : Bytes();
    header.status = transferStatus(reply.status);
    header.length = isIn || !isDone ? static_cast<std::uint16_t>(data.size()) : header.length;
    usbredirparser_send_control_packet(m_parser.get(), id, &header,
                                       data.empty() ? nullptr : data.data(),
                                       static_cast<int>(data.size()));
}

void RedirectedCamera::sendEndpoints()
{
    auto endpoints =
        endpointInfo(m_camera.descriptors().configuration, m_camera.alternateSetting());
    usbredirparser_send_ep_info(m_parser.get(), &endpoints);
}

void RedirectedCamera::onSetConfiguration(std::uint64_t id, std::uint8_t configuration)
{
    forward(id, standardRequest(standardToDevice, usb::setConfiguration, configuration, 0), {},
            [this, id, configuration](const ControlReply& reply) {
                sendEndpoints();
                usb_redir_configuration_status_header status{transferStatus(reply.status),
                                                             configuration};
                usbredirparser_send_configuration_status(m_parser.get(), id, &status);
            });
}

void RedirectedCamera::onGetConfiguration(std::uint64_t id)
{
    forward(id, standardRequest(deviceToHost | standardToDevice, usb::getConfiguration, 0, 0), {},
            [this, id](const ControlReply& reply) {
                usb_redir_configuration_status_header status{transferStatus(reply.status),
                                                             firstByte(reply)};
                usbredirparser_send_configuration_status(m_parser.get(), id, &status);
            });
}

void RedirectedCamera::onSetAlternate(std::uint64_t id, std::uint8_t interface,
                                      std::uint8_t alternate)
{
    forward(id, standardRequest(standardToInterface, usb::setInterface, alternate, interface), {},
            [this, id, interface, alternate](const ControlReply& reply) {
                sendEndpoints();
                usb_redir_alt_setting_status_header status{transferStatus(reply.status), interface,
                                                           alternate};
                usbredirparser_send_alt_setting_status(m_parser.get(), id, &status);
            });
}

void RedirectedCamera::onGetAlternate(std::uint64_t id, std::uint8_t interface)
{
    forward(id,
            standardRequest(deviceToHost | standardToInterface, usb::getInterface, 0, interface),
            {}, [this, id, interface](const ControlReply& reply) {
                usb_redir_alt_setting_status_header status{transferStatus(reply.status), interface,
                                                           firstByte(reply)};
                usbredirparser_send_alt_setting_status(m_parser.get(), id, &status);
            });
}

void RedirectedCamera::onCancel(std::uint64_t id)
{
    const auto control = std::find_if(m_controls.begin(), m_controls.end(),
                                      [id](const PendingControl& one) { return one.id == id; });
    if (control != m_controls.end()) {
        m_controls.erase(control);
        usb_redir_control_packet_header header{};
        header.status = usb_redir_cancelled;
        usbredirparser_send_control_packet(m_parser.get(), id, &header, nullptr, 0);
        return;
    }
    const auto bulk = std::find_if(m_bulk.begin(), m_bulk.end(),
                                   [id](const PendingBulk& one) { return one.id == id; });
    if (bulk != m_bulk.end()) {
        sendBulk(*bulk, usb_redir_cancelled, {});
        m_bulk.erase(bulk);
    }
}

} // namespace zrnsim
