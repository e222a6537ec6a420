#include "usbredir_host.h"

#include "control/unix_socket.h"

#include <cerrno>
#include <poll.h>
#include <sys/socket.h>

namespace
{

UsbRedirHost& self(void* priv)
{
    return *static_cast<UsbRedirHost*>(priv);
}

zrnsim::Bytes take(void* priv, std::uint8_t* data, int length)
{
    zrnsim::Bytes bytes(data, data + length);
    usbredirparser_free_packet_data(self(priv).parser(), data);
    return bytes;
}

} // namespace

UsbRedirHost::UsbRedirHost(const std::filesystem::path& socket)
    : m_socket(zrnsim::connectTo(socket))
    , m_parser(usbredirparser_create(), usbredirparser_destroy)
{
    usbredirparser& parser = *m_parser;
    parser.priv = this;
    parser.log_func = [](void*, int, const char*) {};
    parser.read_func = [](void* priv, std::uint8_t* data, int count) {
        const ssize_t result =
            recv(self(priv).m_socket.get(), data, static_cast<std::size_t>(count), 0);
        return result == 0 ? -1 : result < 0 && errno == EAGAIN ? 0 : static_cast<int>(result);
    };
    parser.write_func = [](void* priv, std::uint8_t* data, int count) {
        const ssize_t result =
            send(self(priv).m_socket.get(), data, static_cast<std::size_t>(count), MSG_NOSIGNAL);
        return result < 0 && errno == EAGAIN ? 0 : static_cast<int>(result);
    };
    parser.hello_func = [](void*, usb_redir_hello_header*) {};
    parser.device_connect_func = [](void* priv, usb_redir_device_connect_header* header) {
        self(priv).device = *header;
    };
    parser.device_disconnect_func = [](void* priv) {
        self(priv).device.reset();
        ++self(priv).disconnects;
    };
    parser.interface_info_func = [](void* priv, usb_redir_interface_info_header* header) {
        self(priv).interfaces = *header;
    };
    parser.ep_info_func = [](void* priv, usb_redir_ep_info_header* header) {
        self(priv).endpoints = *header;
    };
    parser.alt_setting_status_func = [](void* priv, std::uint64_t,
                                        usb_redir_alt_setting_status_header* header) {
        self(priv).alternateStatus = header->status;
    };
    parser.iso_stream_status_func = [](void* priv, std::uint64_t,
                                       usb_redir_iso_stream_status_header* header) {
        self(priv).isochronousStatus = header->status;
    };
    parser.control_packet_func = [](void* priv, std::uint64_t id,
                                    usb_redir_control_packet_header* header, std::uint8_t* data,
                                    int length) {
        self(priv).answers[id] = {header->status, take(priv, data, length)};
    };
    parser.bulk_packet_func = [](void* priv, std::uint64_t id, usb_redir_bulk_packet_header* header,
                                 std::uint8_t* data, int length) {
        self(priv).answers[id] = {header->status, take(priv, data, length)};
    };
    parser.iso_packet_func = [](void* priv, std::uint64_t, usb_redir_iso_packet_header* header,
                                std::uint8_t* data, int length) {
        self(priv).packets.push_back({header->status, take(priv, data, length)});
    };

    std::uint32_t capabilities[USB_REDIR_CAPS_SIZE]{};
    for (const int capability :
         {usb_redir_cap_connect_device_version, usb_redir_cap_device_disconnect_ack,
          usb_redir_cap_ep_info_max_packet_size, usb_redir_cap_64bits_ids,
          usb_redir_cap_32bits_bulk_length}) {
        usbredirparser_caps_set_cap(capabilities, capability);
    }
    usbredirparser_init(m_parser.get(), "test", capabilities, USB_REDIR_CAPS_SIZE, 0);
}

bool UsbRedirHost::exchangeUntil(const std::function<bool()>& isDone,
                                 std::chrono::milliseconds limit)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!hasEnded && !isDone() && std::chrono::steady_clock::now() < end) {
        const bool hasOutput = usbredirparser_has_data_to_write(m_parser.get()) > 0;
        pollfd event{m_socket.get(), static_cast<short>(POLLIN | (hasOutput ? POLLOUT : 0)), 0};
        poll(&event, 1, 10);
        hasEnded = usbredirparser_do_write(m_parser.get()) != 0 ||
                   usbredirparser_do_read(m_parser.get()) == usbredirparser_read_io_error;
    }
    return isDone();
}

void UsbRedirHost::exchangeFor(std::chrono::milliseconds time)
{
    exchangeUntil([] { return false; }, time);
}

std::uint64_t UsbRedirHost::submitControl(std::uint8_t requestType, std::uint8_t request,
                                          std::uint16_t value, std::uint16_t index,
                                          std::uint16_t length, zrnsim::ByteView out)
{
    const std::uint8_t endpoint = requestType & 0x80U;
    usb_redir_control_packet_header header{endpoint, request, requestType, 0, value, index, length};
    zrnsim::Bytes data(out.begin(), out.end());
    usbredirparser_send_control_packet(m_parser.get(), m_nextId, &header,
                                       data.empty() ? nullptr : data.data(),
                                       static_cast<int>(data.size()));
    return m_nextId++;
}

std::optional<UsbRedirHost::Answer> UsbRedirHost::control(std::uint8_t requestType,
                                                          std::uint8_t request, std::uint16_t value,
                                                          std::uint16_t index, std::uint16_t length,
                                                          zrnsim::ByteView out)
{
    const std::uint64_t id = submitControl(requestType, request, value, index, length, out);
    if (!exchangeUntil([&] { return answers.contains(id); })) {
        return std::nullopt;
    }
    return answers.at(id);
}

std::uint64_t UsbRedirHost::submitBulk(std::uint32_t length)
{
    usb_redir_bulk_packet_header header{};
    header.endpoint = zrnsim::topology::streamingEndpoint;
    header.length = static_cast<std::uint16_t>(length & 0xffffU);
    header.length_high = static_cast<std::uint16_t>(length >> 16U);
    usbredirparser_send_bulk_packet(m_parser.get(), m_nextId, &header, nullptr, 0);
    return m_nextId++;
}

std::optional<std::uint8_t> UsbRedirHost::setAlternate(std::uint8_t alternate)
{
    alternateStatus.reset();
    usb_redir_set_alt_setting_header header{zrnsim::topology::streamingInterface, alternate};
    usbredirparser_send_set_alt_setting(m_parser.get(), m_nextId++, &header);
    exchangeUntil([&] { return alternateStatus.has_value(); });
    return alternateStatus;
}
