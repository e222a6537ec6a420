// Where usbredirparser hands over what it has received, and fetches and stores bytes.

#include "usbredir/redirected_camera.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sys/socket.h>

namespace zrnsim
{

namespace
{

void logMessage(void*, int level, const char* message)
{
    if (level <= usbredirparser_warning) {
        std::fprintf(stderr, "zrnsim: usbredir: %s\n", message);
    }
}

/// Result of recv() or send() in the terms of the parser: 0 for "not now".
int transferred(ssize_t result)
{
    const bool isBusy = result < 0 && (errno == EAGAIN || errno == EINTR);
    return isBusy ? 0 : static_cast<int>(result);
}

} // namespace

void RedirectedCamera::registerCallbacks(usbredirparser& parser)
{
    static const auto self = [](void* priv) { return static_cast<RedirectedCamera*>(priv); };
    // The parser hands packet data over to its receiver.
    static const auto release = [](void* priv, std::uint8_t* data) {
        usbredirparser_free_packet_data(self(priv)->m_parser.get(), data);
    };

    parser.log_func = logMessage;
    parser.read_func = [](void* priv, std::uint8_t* data, int count) {
        const ssize_t result = recv(self(priv)->m_socket, data, static_cast<std::size_t>(count), 0);
        return result == 0 ? -1 : transferred(result);
    };
    parser.write_func = [](void* priv, std::uint8_t* data, int count) {
        return transferred(
            ::send(self(priv)->m_socket, data, static_cast<std::size_t>(count), MSG_NOSIGNAL));
    };

    parser.hello_func = [](void* priv, usb_redir_hello_header*) { self(priv)->onHello(); };
    parser.reset_func = [](void* priv) { self(priv)->onReset(); };
    parser.device_disconnect_ack_func = [](void* priv) { self(priv)->onDisconnectAck(); };
    parser.filter_reject_func = [](void*) {};
    parser.filter_filter_func = [](void*, usbredirfilter_rule* rules, int) { std::free(rules); };

    parser.set_configuration_func = [](void* priv, std::uint64_t id,
                                       usb_redir_set_configuration_header* header) {
        self(priv)->onSetConfiguration(id, header->configuration);
    };
    parser.get_configuration_func = [](void* priv, std::uint64_t id) {
        self(priv)->onGetConfiguration(id);
    };
    parser.set_alt_setting_func = [](void* priv, std::uint64_t id,
                                     usb_redir_set_alt_setting_header* header) {
        self(priv)->onSetAlternate(id, header->interface, header->alt);
    };
    parser.get_alt_setting_func = [](void* priv, std::uint64_t id,
                                     usb_redir_get_alt_setting_header* header) {
        self(priv)->onGetAlternate(id, header->interface);
    };
    parser.start_iso_stream_func = [](void* priv, std::uint64_t id,
                                      usb_redir_start_iso_stream_header* header) {
        self(priv)->onStartIsochronous(id, header->endpoint);
    };
    parser.stop_iso_stream_func = [](void* priv, std::uint64_t id,
                                     usb_redir_stop_iso_stream_header* header) {
        self(priv)->onStopIsochronous(id, header->endpoint);
    };
    parser.cancel_data_packet_func = [](void* priv, std::uint64_t id) { self(priv)->onCancel(id); };
    parser.control_packet_func = [](void* priv, std::uint64_t id,
                                    usb_redir_control_packet_header* header, std::uint8_t* data,
                                    int length) {
        self(priv)->onControl(id, *header, {data, static_cast<std::size_t>(length)});
        release(priv, data);
    };
    parser.bulk_packet_func = [](void* priv, std::uint64_t id, usb_redir_bulk_packet_header* header,
                                 std::uint8_t* data, int) {
        release(priv, data);
        self(priv)->onBulk(id, *header);
    };

    // What none of the cameras has: interrupt endpoints, streams on bulk endpoints, and data that
    // flows towards the camera.
    parser.iso_packet_func = [](void* priv, std::uint64_t, usb_redir_iso_packet_header*,
                                std::uint8_t* data, int) { release(priv, data); };
    parser.interrupt_packet_func = [](void* priv, std::uint64_t, usb_redir_interrupt_packet_header*,
                                      std::uint8_t* data, int) { release(priv, data); };
    parser.start_interrupt_receiving_func = [](void* priv, std::uint64_t id,
                                               usb_redir_start_interrupt_receiving_header* header) {
        usb_redir_interrupt_receiving_status_header status{usb_redir_inval, header->endpoint};
        usbredirparser_send_interrupt_receiving_status(self(priv)->m_parser.get(), id, &status);
    };
    parser.stop_interrupt_receiving_func = [](void*, std::uint64_t,
                                              usb_redir_stop_interrupt_receiving_header*) {};
    parser.alloc_bulk_streams_func = [](void* priv, std::uint64_t id,
                                        usb_redir_alloc_bulk_streams_header* header) {
        usb_redir_bulk_streams_status_header status{header->endpoints, 0, usb_redir_inval};
        usbredirparser_send_bulk_streams_status(self(priv)->m_parser.get(), id, &status);
    };
    parser.free_bulk_streams_func = [](void*, std::uint64_t, usb_redir_free_bulk_streams_header*) {
    };
    parser.start_bulk_receiving_func = [](void* priv, std::uint64_t id,
                                          usb_redir_start_bulk_receiving_header* header) {
        usb_redir_bulk_receiving_status_header status{header->stream_id, header->endpoint,
                                                      usb_redir_inval};
        usbredirparser_send_bulk_receiving_status(self(priv)->m_parser.get(), id, &status);
    };
    parser.stop_bulk_receiving_func = [](void*, std::uint64_t,
                                         usb_redir_stop_bulk_receiving_header*) {};
}

} // namespace zrnsim
