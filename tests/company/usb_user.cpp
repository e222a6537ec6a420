#include "usb_user.h"

#include "teller.h"

#include <libusb.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace
{

using company::describe;
using company::Teller;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint16_t vendorId = 0x1234;
constexpr std::uint16_t productId = 0x5678;
constexpr std::uint8_t bulkOut = 0x01;
constexpr std::uint8_t bulkIn = 0x81;
constexpr std::uint8_t interruptIn = 0x82;
constexpr std::uint8_t isochronousIn = 0x83;
constexpr std::uint8_t vendorOut = 0x40;
constexpr std::uint8_t vendorIn = 0xc0;
constexpr unsigned patience = 20'000; // milliseconds, for what has to come

/// The gadget's vendor requests.
enum Request : std::uint8_t {
    Keep = 1,
    Recall = 2,
    Send = 3,
    Halt = 4,
    Fail = 5,
    Reset = 6,
    Account = 7,
    Ignore = 8,
    Leave = 9,
};

std::string codeAnd(int code, std::span<const std::uint8_t> data)
{
    return std::to_string(code) + ", " + describe(data);
}

/// A gadget, opened in a context of its own.
class Device
{
public:
    explicit Device(unsigned ordinal)
        : m_ordinal(ordinal)
    {
        libusb_init(&m_context);
        libusb_device** list = nullptr;
        const ssize_t count = libusb_get_device_list(m_context, &list);
        for (ssize_t i = 0; i < count && !m_handle; ++i) {
            libusb_device_descriptor descriptor{};
            libusb_get_device_descriptor(list[i], &descriptor);
            if (descriptor.idVendor != vendorId || descriptor.idProduct != productId ||
                libusb_open(list[i], &m_handle) != 0) {
                continue;
            }
            unsigned char serial[16]{};
            libusb_get_string_descriptor_ascii(m_handle, descriptor.iSerialNumber, serial,
                                               sizeof serial);
            if (serial[0] != 'G' ||
                std::atoi(reinterpret_cast<char*>(serial) + 1) != int(ordinal)) {
                libusb_close(m_handle);
                m_handle = nullptr;
            }
        }
        libusb_free_device_list(list, 1);
    }
    ~Device()
    {
        if (m_handle) {
            libusb_close(m_handle);
        }
        libusb_exit(m_context);
    }
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    explicit operator bool() const { return m_handle != nullptr; }
    unsigned ordinal() const { return m_ordinal; }
    libusb_context* context() const { return m_context; }
    libusb_device_handle* handle() const { return m_handle; }

    int request(Request request, unsigned value = 0, unsigned index = 0, Bytes data = {}) const
    {
        return libusb_control_transfer(m_handle, vendorOut, request,
                                       static_cast<std::uint16_t>(value),
                                       static_cast<std::uint16_t>(index), data.data(),
                                       static_cast<std::uint16_t>(data.size()), patience);
    }

    std::string read(Request request, unsigned delay, unsigned timeout) const
    {
        Bytes data(64);
        const int code =
            libusb_control_transfer(m_handle, vendorIn, request, static_cast<std::uint16_t>(delay),
                                    0, data.data(), 64, timeout);
        data.resize(static_cast<std::size_t>(std::max(code, 0)));
        return codeAnd(code, data);
    }

    /// Lets an endpoint send messages of a length that begin with some bytes.
    void send(std::uint8_t endpoint, std::uint32_t length, std::uint32_t count,
              const Bytes& head = {}) const
    {
        Bytes data(8);
        std::memcpy(data.data(), &length, 4);
        std::memcpy(data.data() + 4, &count, 4);
        data.insert(data.end(), head.begin(), head.end());
        request(Send, 0, endpoint, data);
    }

    std::string bulkRead(std::size_t length, unsigned timeout = patience,
                         std::uint8_t endpoint = bulkIn) const
    {
        Bytes data(length);
        int moved = -1;
        const auto transfer =
            endpoint == interruptIn ? libusb_interrupt_transfer : libusb_bulk_transfer;
        const int code =
            transfer(m_handle, endpoint, data.data(), static_cast<int>(length), &moved, timeout);
        data.resize(static_cast<std::size_t>(std::max(moved, 0)));
        return codeAnd(code, data);
    }

    std::string bulkWrite(Bytes data) const
    {
        int moved = -1;
        const int code = libusb_bulk_transfer(m_handle, bulkOut, data.data(),
                                              static_cast<int>(data.size()), &moved, patience);
        return std::to_string(code) + ", " + std::to_string(moved) + " moved";
    }

    /// Transfers that the device is the context of, as with many programs.
    std::map<libusb_transfer*, int*>& endFlags() { return m_endFlags; }

private:
    std::map<libusb_transfer*, int*> m_endFlags;
    unsigned m_ordinal;
    libusb_context* m_context = nullptr;
    libusb_device_handle* m_handle = nullptr;
};

/// An asynchronous transfer that tells how it ended.
class Transfer
{
public:
    Transfer(Device& device, std::uint8_t endpoint, std::size_t length, unsigned timeout = 0,
             int packets = 0)
        : m_device(device)
        , m_data(length)
        , m_transfer(libusb_alloc_transfer(packets))
    {
        device.endFlags()[m_transfer] = &m_ended;
        const int size = static_cast<int>(length);
        if (packets > 0) {
            libusb_fill_iso_transfer(m_transfer, device.handle(), endpoint, m_data.data(), size,
                                     packets, onEnd, &device, timeout);
            libusb_set_iso_packet_lengths(m_transfer, static_cast<unsigned>(size / packets));
        } else if (endpoint == interruptIn) {
            libusb_fill_interrupt_transfer(m_transfer, device.handle(), endpoint, m_data.data(),
                                           size, onEnd, &device, timeout);
        } else {
            libusb_fill_bulk_transfer(m_transfer, device.handle(), endpoint, m_data.data(), size,
                                      onEnd, &device, timeout);
        }
    }
    ~Transfer()
    {
        m_device.endFlags().erase(m_transfer);
        libusb_free_transfer(m_transfer);
    }
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    int submit()
    {
        m_ended = 0;
        return libusb_submit_transfer(m_transfer);
    }
    int cancel() { return libusb_cancel_transfer(m_transfer); }

    /// Handles events until the transfer has ended.
    std::string outcome()
    {
        const auto start = std::chrono::steady_clock::now();
        while (m_ended == 0) {
            timeval pause{0, 100'000};
            libusb_handle_events_timeout_completed(m_device.context(), &pause, &m_ended);
            if (std::chrono::steady_clock::now() - start > std::chrono::seconds(5)) {
                return "has not ended";
            }
        }
        std::string text =
            "status " + std::to_string(m_transfer->status) + ", " +
            describe({m_data.data(), static_cast<std::size_t>(m_transfer->actual_length)});
        for (int i = 0; i < m_transfer->num_iso_packets; ++i) {
            const libusb_iso_packet_descriptor& packet = m_transfer->iso_packet_desc[i];
            const std::uint8_t* const data =
                libusb_get_iso_packet_buffer_simple(m_transfer, static_cast<unsigned>(i));
            text += "; " + std::to_string(packet.status) + ", " +
                    describe({data, packet.actual_length});
        }
        return text;
    }

    /// Submits, and waits for the end.
    std::string round()
    {
        const int code = submit();
        return "submitted " + std::to_string(code) + (code == 0 ? ", " + outcome() : "");
    }

    libusb_transfer* raw() { return m_transfer; }

private:
    static void LIBUSB_CALL onEnd(libusb_transfer* transfer)
    {
        *static_cast<Device*>(transfer->user_data)->endFlags().at(transfer) = 1;
    }

    Device& m_device;
    Bytes m_data;
    libusb_transfer* m_transfer;
    int m_ended = 0;
};

Bytes counting(std::size_t length, const Bytes& head)
{
    Bytes data(length);
    for (std::size_t i = 0; i < length; ++i) {
        data[i] = i < head.size() ? head[i] : static_cast<std::uint8_t>(i * 3);
    }
    return data;
}

/// What open video streams begin their payloads with, and what is near it.
const std::array<Bytes, 5> headers{Bytes{0x02, 0x04, 0x01, 0x07}, Bytes{0x08, 0x0c, 1, 2},
                                   Bytes{0x0c, 0x8c}, Bytes{0x0c, 0x8f}, Bytes{0x01, 0x60}};

void descriptors(const Teller& tell, Device& device)
{
    libusb_device* const usb = libusb_get_device(device.handle());
    const auto describeConfiguration = [](int code, libusb_config_descriptor* configuration) {
        std::string text = std::to_string(code);
        if (code != 0) {
            return text;
        }
        const auto extra = [](const unsigned char* data, int size) {
            return "; " + describe({data, static_cast<std::size_t>(size)});
        };
        text += extra(configuration->extra, configuration->extra_length);
        for (int i = 0; i < configuration->bNumInterfaces; ++i) {
            for (int j = 0; j < configuration->interface[i].num_altsetting; ++j) {
                const auto& setting = configuration->interface[i].altsetting[j];
                text += extra(setting.extra, setting.extra_length);
            }
        }
        libusb_free_config_descriptor(configuration);
        return text;
    };
    tell("configuration", [&] {
        libusb_config_descriptor* configuration = nullptr;
        const int code = libusb_get_config_descriptor(usb, 0, &configuration);
        return describeConfiguration(code, configuration);
    });
    tell("active configuration", [&] {
        libusb_config_descriptor* configuration = nullptr;
        const int code = libusb_get_active_config_descriptor(usb, &configuration);
        return describeConfiguration(code, configuration);
    });
    tell("descriptor from the device", [&] {
        Bytes data(512);
        const int code = libusb_get_descriptor(device.handle(), LIBUSB_DT_CONFIG, 0, data.data(),
                                               static_cast<int>(data.size()));
        data.resize(static_cast<std::size_t>(std::max(code, 0)));
        return codeAnd(code, data);
    });
}

void control(const Teller& tell, Device& device)
{
    for (const Bytes& head : headers) {
        tell("keep and recall", [&] {
            const int code = device.request(Keep, 0, 0, counting(40, head));
            return std::to_string(code) + ", " + device.read(Recall, 0, patience);
        });
    }
    tell("unknown request", [&] { return device.read(static_cast<Request>(77), 0, patience); });
    // As a commit of a video stream: of payloads without a size, and of huge ones.
    for (const int filling : {0x00, 0xff}) {
        tell("firmware download", [&] {
            Bytes data(34, static_cast<std::uint8_t>(filling));
            const int code = libusb_control_transfer(device.handle(), 0x21, 0x01, 0x0200, 1,
                                                     data.data(), 34, patience);
            return std::to_string(code) + ", " + device.read(Recall, 0, patience);
        });
    }
}

void slowControl(const Teller& tell, Device& device)
{
    device.request(Keep, 0, 0, counting(40, headers[0]));
    tell("3 s of 10", [&] { return device.read(Recall, 3000, 10'000); });
    tell("timed out", [&] { return device.read(Ignore, 0, 400); });
    tell("500 ms after that", [&] { return device.read(Recall, 500, 1000); });
    tell("500 ms without a limit", [&] { return device.read(Recall, 500, 0); });
}

void slowerControl(const Teller& tell, Device& device)
{
    device.request(Keep, 0, 0, counting(40, headers[1]));
    tell("5 s without a limit", [&] { return device.read(Recall, 5000, 0); });
}

void bulk(const Teller& tell, Device& device)
{
    for (const Bytes& head : headers) {
        for (const unsigned length : {1U, 4U, 8U, 511U, 512U, 65'536U}) {
            tell("write", [&] { return device.bulkWrite(counting(length, head)); });
        }
    }
    tell("account", [&] { return device.read(Account, 0, patience); });
    for (const Bytes& head : headers) {
        for (const unsigned length : {0U, 1U, 4U, 8U, 511U, 512U, 65'536U, 1'048'576U}) {
            tell("read", [&] {
                device.send(bulkIn, length, 1, head);
                return device.bulkRead(length == 0 ? 512 : length);
            });
        }
    }
    tell("overflow", [&] {
        device.send(bulkIn, 600, 1, headers[0]);
        return device.bulkRead(8);
    });
}

/// Replies of a serial adapter: short, of every beginning.
void replies(const Teller& tell, Device& device)
{
    for (unsigned first = 0; first < 256; first += 3) {
        tell("reply", [&] {
            const unsigned length = first % 13 + 1;
            device.send(bulkIn, length, 1,
                        {static_cast<std::uint8_t>(first), static_cast<std::uint8_t>(first * 5)});
            return device.bulkRead(length);
        });
    }
}

constexpr std::uint32_t pieceLength = 1024 * 1024;
constexpr std::uint32_t pieces = 20; // more than libuvc's frame buffer holds

/// Never the end of a frame.
const Bytes endlessFrame{0x02, 0x00};

void stream(const Teller& tell, Device& device)
{
    device.send(bulkIn, pieceLength, pieces, endlessFrame);
    for (std::uint32_t i = 0; i < pieces; ++i) {
        tell("a MiB of 20", [&] { return device.bulkRead(pieceLength); });
    }
}

void streamAhead(const Teller& tell, Device& device)
{
    constexpr std::size_t depth = 4;
    device.send(bulkIn, pieceLength, pieces, endlessFrame);
    std::vector<std::unique_ptr<Transfer>> flying;
    for (std::size_t i = 0; i < depth; ++i) {
        flying.push_back(std::make_unique<Transfer>(device, bulkIn, pieceLength));
        tell("submit", [&] { return std::to_string(flying.back()->submit()); });
    }
    for (std::uint32_t i = 0; i < pieces; ++i) {
        Transfer& next = *flying[i % depth];
        tell("a MiB of 20", [&] {
            const std::string outcome = next.outcome();
            return outcome + (i + depth < pieces ? ", " + std::to_string(next.submit()) : "");
        });
    }
}

void timeOuts(const Teller& tell, Device& device)
{
    tell("bulk", [&] { return device.bulkRead(512, 300); });
    tell("interrupt", [&] { return device.bulkRead(64, 300, interruptIn); });
    for (const std::uint8_t endpoint : {bulkIn, interruptIn}) {
        Transfer transfer(device, endpoint, 512, 300);
        tell("asynchronous", [&] { return transfer.round(); });
        tell("once more", [&] { return transfer.round(); });
        tell("with data", [&] {
            device.send(endpoint, 8, 1, headers[1]);
            return transfer.round();
        });
    }
}

void cancelling(const Teller& tell, Device& device)
{
    for (const std::uint8_t endpoint : {bulkIn, interruptIn}) {
        Transfer transfer(device, endpoint, 512);
        tell("before it was submitted", [&] { return std::to_string(transfer.cancel()); });
        for (int i = 0; i < 3; ++i) {
            tell("submit and cancel", [&] {
                const int submitted = transfer.submit();
                const int cancelled = transfer.cancel();
                return std::to_string(submitted) + ", " + std::to_string(cancelled) + ", " +
                       transfer.outcome() + ", then " + std::to_string(transfer.cancel());
            });
        }
        tell("submit again", [&] {
            device.send(endpoint, 4, 1, headers[0]);
            return transfer.round();
        });
        tell("twice", [&] {
            const int first = transfer.submit();
            const int second = libusb_submit_transfer(transfer.raw());
            transfer.cancel();
            return std::to_string(first) + ", " + std::to_string(second) + ", " +
                   transfer.outcome();
        });
    }
}

void stalls(const Teller& tell, Device& device)
{
    for (const std::uint8_t endpoint : {bulkIn, interruptIn}) {
        Transfer transfer(device, endpoint, 512);
        device.request(Halt, 0, endpoint);
        tell("synchronous", [&] { return device.bulkRead(512, patience, endpoint); });
        tell("asynchronous", [&] { return transfer.round(); });
        tell("again", [&] { return transfer.round(); });
        tell("cleared", [&] {
            const int code = libusb_clear_halt(device.handle(), endpoint);
            device.send(endpoint, 8, 1, headers[1]);
            return std::to_string(code) + ", " + transfer.round();
        });
        device.request(Fail, 0, endpoint);
        tell("bus error", [&] { return transfer.round(); });
        tell("after it", [&] {
            device.send(endpoint, 4, 1, headers[0]);
            return transfer.round();
        });
    }
    device.request(Halt, 0, bulkOut);
    tell("write", [&] { return device.bulkWrite(headers[0]); });
    tell("write after clearing", [&] {
        return std::to_string(libusb_clear_halt(device.handle(), bulkOut)) + ", " +
               device.bulkWrite(headers[0]);
    });
}

void interrupts(const Teller& tell, Device& device)
{
    for (const Bytes& head : headers) {
        for (const unsigned length : {1U, 4U, 8U, 64U}) {
            tell("read", [&] {
                device.send(interruptIn, length, 1, head);
                return device.bulkRead(64, patience, interruptIn);
            });
        }
    }
}

void isochronous(const Teller& tell, Device& device)
{
    constexpr int packets = 8;
    tell("no such setting",
         [&] { return std::to_string(libusb_set_interface_alt_setting(device.handle(), 1, 9)); });
    Transfer transfer(device, isochronousIn, packets * 1024, 0, packets);
    tell("without bandwidth", [&] { return transfer.round(); });
    tell("setting",
         [&] { return std::to_string(libusb_set_interface_alt_setting(device.handle(), 1, 1)); });
    for (const Bytes& head : headers) {
        tell("packets", [&] {
            device.send(isochronousIn, 4, 2, head);
            device.send(isochronousIn, 1024, 4, head);
            return transfer.round();
        });
    }
    Transfer small(device, isochronousIn, packets * 8, 0, packets);
    for (const Bytes& head : headers) {
        tell("small packets", [&] {
            device.send(isochronousIn, 4, 4, head);
            device.send(isochronousIn, 8, 4, head);
            return small.round();
        });
    }
    tell("setting without bandwidth",
         [&] { return std::to_string(libusb_set_interface_alt_setting(device.handle(), 1, 0)); });
}

/// An event loop that has nothing to do sleeps until there is something.
void idleEvents(const Teller& tell, Device& device)
{
    Bytes buffer(LIBUSB_CONTROL_SETUP_SIZE + 64);
    int ended = 0;
    libusb_transfer* const transfer = libusb_alloc_transfer(0);
    libusb_fill_control_setup(buffer.data(), 0xc0, Recall, 2500, 0, 64);
    libusb_fill_control_transfer(
        transfer, device.handle(), buffer.data(),
        [](libusb_transfer* done) { *static_cast<int*>(done->user_data) = 1; }, &ended, 0);
    tell("one event in 2.5 s", [&] {
        int idle = 0;
        libusb_submit_transfer(transfer);
        while (!ended) {
            const auto start = std::chrono::steady_clock::now();
            libusb_handle_events_completed(device.context(), &ended);
            // A turn that ends at once may have had an event of the library's own.
            const auto slept = std::chrono::steady_clock::now() - start;
            idle += !ended && slept > std::chrono::milliseconds(500) ? 1 : 0;
        }
        return "status " + std::to_string(transfer->status) + ", " + std::to_string(idle) +
               " idle turns";
    });
    libusb_free_transfer(transfer);
}

/// The gadget leaves the bus with a transfer in flight, and comes back.
void unplugging(const Teller& tell, Device& device)
{
    Transfer transfer(device, bulkIn, 512);
    tell("leaves", [&] {
        const int submitted = transfer.submit();
        device.request(Leave, 0, 500);
        return std::to_string(submitted) + ", " + transfer.outcome();
    });
    tell("afterwards", [&] {
        return device.read(Recall, 0, patience) + "; " + device.bulkRead(512) + "; " +
               std::to_string(transfer.submit()) + "; " + std::to_string(transfer.cancel());
    });
    std::unique_ptr<Device> again;
    tell.untimed("is back", [&] {
        do {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            again = std::make_unique<Device>(device.ordinal());
        } while (!*again || libusb_claim_interface(again->handle(), 0) != 0);
        return std::string();
    });
    tell("read", [&] {
        again->send(bulkIn, 4, 1, headers[0]);
        return again->bulkRead(512);
    });
}

using Run = void (*)(const Teller&, Device&);

Run findCase(const std::string& name)
{
    constexpr std::pair<const char*, Run> cases[]{
        {"descriptors", descriptors},
        {"control", control},
        {"slow_control", slowControl},
        {"slower_control", slowerControl},
        {"bulk", bulk},
        {"replies", replies},
        {"stream", stream},
        {"stream_ahead", streamAhead},
        {"time_outs", timeOuts},
        {"cancelling", cancelling},
        {"stalls", stalls},
        {"interrupts", interrupts},
        {"isochronous", isochronous},
        {"idle_events", idleEvents},
        {"unplugging", unplugging},
    };
    for (const auto& [known, run] : cases) {
        if (name == known) {
            return run;
        }
    }
    throw std::invalid_argument(name);
}

} // namespace

extern "C" __attribute__((visibility("default"))) void useUsb(const char* name, unsigned ordinal,
                                                              TellStep tellStep, void* context)
{
    const Teller tell(tellStep, context);
    Device device(ordinal);
    if (!device) {
        tellStep(context, "open", "no such device", 0);
        return;
    }
    device.request(Reset);
    tell("claim", [&] {
        return std::to_string(libusb_claim_interface(device.handle(), 0)) + ", " +
               std::to_string(libusb_claim_interface(device.handle(), 1));
    });
    findCase(name)(tell, device);
    tell("release", [&] {
        return std::to_string(libusb_release_interface(device.handle(), 1)) + ", " +
               std::to_string(libusb_release_interface(device.handle(), 0));
    });
}
