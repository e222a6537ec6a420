#pragma once

#include "control/file_descriptor.h"
#include "model/usb.h"

#include <chrono>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <usbredirparser.h>

/// What a hypervisor does with a usbredir connection: keeps what the camera's side sends.
class UsbRedirHost
{
public:
    struct Answer {
        std::uint8_t status = usb_redir_success;
        zrnsim::Bytes data;
    };

    explicit UsbRedirHost(const std::filesystem::path& socket);

    usbredirparser* parser() { return m_parser.get(); }

    /// Exchanges bytes until `isDone` or the time limit; returns the former's last answer.
    bool exchangeUntil(const std::function<bool()>& isDone,
                       std::chrono::milliseconds limit = std::chrono::seconds(20));

    /// Exchanges bytes for some time, in which nothing should happen.
    void exchangeFor(std::chrono::milliseconds time);

    /// A control request, and its answer if one comes.
    std::optional<Answer> control(std::uint8_t requestType, std::uint8_t request,
                                  std::uint16_t value, std::uint16_t index, std::uint16_t length,
                                  zrnsim::ByteView out = {});
    std::uint64_t submitControl(std::uint8_t requestType, std::uint8_t request, std::uint16_t value,
                                std::uint16_t index, std::uint16_t length,
                                zrnsim::ByteView out = {});
    std::uint64_t submitBulk(std::uint32_t length);

    /// SET_INTERFACE of the streaming interface: the status that comes back.
    std::optional<std::uint8_t> setAlternate(std::uint8_t alternate);

    std::optional<usb_redir_device_connect_header> device; ///< while the camera is plugged in
    usb_redir_interface_info_header interfaces{};
    usb_redir_ep_info_header endpoints{};
    std::map<std::uint64_t, Answer> answers; ///< to control and bulk transfers, by id
    std::deque<Answer> packets;              ///< of the isochronous stream
    std::optional<std::uint8_t> isochronousStatus;
    std::optional<std::uint8_t> alternateStatus;
    int disconnects = 0;
    bool hasEnded = false; ///< the camera's side has closed the connection

private:
    const zrnsim::FileDescriptor m_socket;
    const std::unique_ptr<usbredirparser, void (*)(usbredirparser*)> m_parser;
    std::uint64_t m_nextId = 1;
};
