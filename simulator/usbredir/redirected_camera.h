#pragma once

#include "model/camera.h"

#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <usbredirparser.h>

namespace zrnsim
{

/// One camera on a usbredir connection: the far end of what a virtual machine takes for a cable.
/// Not synchronised; reads and writes its socket only when told to.
class RedirectedCamera
{
public:
    /// @param socket non-blocking; stays the caller's
    /// @param isPlugged whether the host finds the camera plugged in
    RedirectedCamera(Camera& camera, int socket, bool isPlugged);
    RedirectedCamera(const RedirectedCamera&) = delete;
    RedirectedCamera& operator=(const RedirectedCamera&) = delete;

    /// Handles what the host has sent. False when the connection has ended.
    bool receive();

    /// Answers every transfer that the camera has an answer for by now.
    void serve();

    /// Sends what waits to be sent. False when the connection has ended.
    bool send();
    bool wantsToSend() const;

    /// When serve() has to be called at the latest, if at all.
    std::optional<Clock::time_point> deadline() const;

    void unplug();
    void plug();

private:
    using SendReply = std::function<void(const ControlReply&)>;

    struct PendingControl {
        std::uint64_t id = 0;
        std::optional<Clock::time_point> due; ///< without one the camera never answers
        ControlReply reply;
        SendReply send;
    };

    struct PendingBulk {
        std::uint64_t id = 0;
        usb_redir_bulk_packet_header header{};
        std::uint32_t length() const
        {
            return header.length | std::uint32_t(header.length_high) << 16U;
        }
    };

    /// The flow of packets that an isochronous endpoint sends unasked.
    struct IsochronousStream {
        std::uint8_t endpoint = 0;
        std::uint32_t packetSize = 0;
        Clock::time_point due;    ///< of the next microframe
        std::uint64_t packet = 0; ///< number of the next one
        std::uint64_t idle = 0;   ///< microframes since the last one with data
    };

    static void registerCallbacks(usbredirparser& parser);
    void onHello();
    void onReset();
    void onDisconnectAck();
    void onControl(std::uint64_t id, usb_redir_control_packet_header header, ByteView out);
    void onSetConfiguration(std::uint64_t id, std::uint8_t configuration);
    void onGetConfiguration(std::uint64_t id);
    void onSetAlternate(std::uint64_t id, std::uint8_t interface, std::uint8_t alternate);
    void onGetAlternate(std::uint64_t id, std::uint8_t interface);
    void onStartIsochronous(std::uint64_t id, std::uint8_t endpoint);
    void onStopIsochronous(std::uint64_t id, std::uint8_t endpoint);
    void onBulk(std::uint64_t id, const usb_redir_bulk_packet_header& header);
    void onCancel(std::uint64_t id);

    void connect();
    void dropTransfers();
    void forward(std::uint64_t id, const SetupPacket& setup, ByteView out, SendReply send);
    void sendEndpoints();
    void sendControl(std::uint64_t id, usb_redir_control_packet_header header,
                     const ControlReply& reply);
    void sendBulk(const PendingBulk& transfer, std::uint8_t status, const PayloadPiece& piece);
    void serveBulk();
    void serveIsochronous();
    void sendIsochronousPacket();
    std::uint8_t* gather(const PayloadPiece& piece);

    Camera& m_camera;
    const int m_socket;
    const std::unique_ptr<usbredirparser, void (*)(usbredirparser*)> m_parser;
    bool m_isPlugged;
    bool m_isGreeted = false;   ///< the host has said hello
    bool m_isConnected = false; ///< the host believes the camera to be plugged in
    bool m_awaitsAck = false;   ///< the host has not finished unplugging yet
    std::list<PendingControl> m_controls;
    std::deque<PendingBulk> m_bulk;
    std::optional<IsochronousStream> m_isochronous;
    Bytes m_packet;
};

} // namespace zrnsim
