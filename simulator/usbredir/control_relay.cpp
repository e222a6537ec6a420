#include "usbredir/control_relay.h"

#include "control/unix_socket.h"

#include <array>
#include <cerrno>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <utility>
#include <vector>

namespace zrnsim
{

namespace
{

constexpr std::size_t packetHeader = 8;
constexpr std::size_t longestRead = std::size_t(64) * 1024;

/// While this much waits for the line, no more is taken from the sockets.
constexpr std::size_t longestQueue = std::size_t(1024) * 1024;

bool isTransient(int error)
{
    return error == EAGAIN || error == EINTR;
}

/// Writes what the descriptor takes now. False when it takes no more for good.
template <typename Write>
bool writeFrom(Bytes& output, Write write)
{
    while (!output.empty()) {
        const ssize_t count = write(output.data(), output.size());
        if (count < 0) {
            return isTransient(errno);
        }
        output.erase(output.begin(), output.begin() + count);
    }
    return true;
}

} // namespace

ControlRelay::ControlRelay(FileDescriptor line)
    : m_line(std::move(line))
{
}

ControlRelay ControlRelay::nearClients(FileDescriptor line, int listener)
{
    ControlRelay relay(std::move(line));
    relay.m_listener = listener;
    return relay;
}

ControlRelay ControlRelay::nearServer(FileDescriptor line, std::filesystem::path server)
{
    ControlRelay relay(std::move(line));
    relay.m_server = std::move(server);
    return relay;
}

void ControlRelay::run(int stop)
{
    for (bool isStopped = false; !isStopped && !m_hasLineEnded;) {
        pollOnce(stop, isStopped);
    }
}

void ControlRelay::pollOnce(int stop, bool& isStopped)
{
    const auto events = [](bool reads, bool writes) {
        return static_cast<short>((reads ? POLLIN : 0) | (writes ? POLLOUT : 0));
    };
    const bool hasRoom = m_lineOutput.size() < longestQueue;
    std::vector<pollfd> polled{{stop, POLLIN, 0},
                               {m_line.get(), events(true, !m_lineOutput.empty()), 0},
                               {m_listener, POLLIN, 0}};
    std::vector<std::uint16_t> numbers;
    for (const auto& [number, channel] : m_channels) {
        const short wanted = events(!channel.hasInputEnded && hasRoom, !channel.output.empty());
        // Without anything to wait for, a socket that was hung up would wake the poll for ever.
        polled.push_back({wanted == 0 ? -1 : channel.socket.get(), wanted, 0});
        numbers.push_back(number);
    }
    if (poll(polled.data(), polled.size(), -1) < 0) {
        return;
    }

    isStopped = polled[0].revents != 0;
    if (polled[2].revents != 0) {
        acceptClient();
    }
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        const short happened = polled[i + 3].revents;
        Channel& channel = m_channels.at(numbers[i]);
        if ((happened & (POLLIN | POLLHUP | POLLERR)) != 0 && !channel.hasInputEnded) {
            readSocket(numbers[i], channel);
        }
        writeSocket(channel);
    }
    m_hasLineEnded = (polled[1].revents != 0 && !readLine()) || !writeLine();
    std::erase_if(m_channels, [](const auto& entry) {
        return entry.second.hasInputEnded && entry.second.hasOutputEnded;
    });
}

void ControlRelay::acceptClient()
{
    FileDescriptor socket = acceptFrom(m_listener);
    if (!socket.isOpen()) {
        return;
    }
    while (m_channels.contains(m_nextChannel)) {
        ++m_nextChannel;
    }
    m_channels[m_nextChannel].socket = std::move(socket);
    queue(m_nextChannel++, Kind::Open);
}

void ControlRelay::openChannel(std::uint16_t number)
{
    try {
        FileDescriptor socket = connectTo(m_server);
        m_channels[number] = Channel{};
        m_channels[number].socket = std::move(socket);
    } catch (const std::system_error&) {
        queue(number, Kind::End); // the client finds its connection closed
    }
}

void ControlRelay::readSocket(std::uint16_t number, Channel& channel)
{
    std::array<std::uint8_t, longestRead> data; // NOLINT(cppcoreguidelines-pro-type-member-init)
    const ssize_t count = recv(channel.socket.get(), data.data(), data.size(), 0);
    if (count > 0) {
        queue(number, Kind::Data, ByteView(data).first(static_cast<std::size_t>(count)));
    } else if (count == 0 || !isTransient(errno)) {
        channel.hasInputEnded = true;
        queue(number, Kind::End);
    }
}

void ControlRelay::writeSocket(Channel& channel)
{
    const int fd = channel.socket.get();
    const bool isAlive =
        writeFrom(channel.output, [fd](const std::uint8_t* data, std::size_t size) {
            return send(fd, data, size, MSG_NOSIGNAL);
        });
    if (!isAlive) {
        channel.output.clear(); // nobody is left to read it
    }
    if (channel.isOutputEnding && channel.output.empty() && !channel.hasOutputEnded) {
        shutdown(fd, SHUT_WR);
        channel.hasOutputEnded = true;
    }
}

bool ControlRelay::readLine()
{
    std::array<std::uint8_t, longestRead> data; // NOLINT(cppcoreguidelines-pro-type-member-init)
    const ssize_t count = read(m_line.get(), data.data(), data.size());
    if (count <= 0) {
        return count < 0 && isTransient(errno);
    }
    m_lineInput.insert(m_lineInput.end(), data.begin(), data.begin() + count);

    std::size_t handled = 0;
    for (;;) {
        const ByteView rest = ByteView(m_lineInput).subspan(handled);
        if (rest.size() < packetHeader) {
            break;
        }
        const std::size_t length = readLittleEndian(rest, 4, 4);
        if (rest.size() - packetHeader < length) {
            break;
        }
        handlePacket(static_cast<std::uint16_t>(readLittleEndian(rest, 0, 2)),
                     static_cast<Kind>(readLittleEndian(rest, 2, 2)),
                     rest.subspan(packetHeader, length));
        handled += packetHeader + length;
    }
    m_lineInput.erase(m_lineInput.begin(),
                      m_lineInput.begin() + static_cast<std::ptrdiff_t>(handled));
    return true;
}

void ControlRelay::handlePacket(std::uint16_t number, Kind kind, ByteView data)
{
    if (kind == Kind::Open) {
        openChannel(number);
        return;
    }
    const auto found = m_channels.find(number);
    if (found == m_channels.end()) {
        return;
    }
    Channel& channel = found->second;
    if (kind == Kind::Data) {
        channel.output.insert(channel.output.end(), data.begin(), data.end());
    } else if (kind == Kind::End) {
        channel.isOutputEnding = true;
    }
    writeSocket(channel);
}

bool ControlRelay::writeLine()
{
    const int fd = m_line.get();
    return writeFrom(m_lineOutput, [fd](const std::uint8_t* data, std::size_t size) {
        // A socket that has lost its far end, as QEMU's when it ends, must not kill this process.
        const ssize_t count = send(fd, data, size, MSG_NOSIGNAL);
        return count < 0 && errno == ENOTSOCK ? write(fd, data, size) : count;
    });
}

void ControlRelay::queue(std::uint16_t number, Kind kind, ByteView data)
{
    ByteWriter(m_lineOutput)
        .u16(number)
        .u16(static_cast<std::uint32_t>(kind))
        .u32(static_cast<std::uint32_t>(data.size()))
        .bytes(data);
}

} // namespace zrnsim
