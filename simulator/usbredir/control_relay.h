#pragma once

#include "control/file_descriptor.h"
#include "model/usb.h"

#include <filesystem>
#include <map>

namespace zrnsim
{

/// Carries any number of connections to a UNIX socket over one byte channel, such as a serial line
/// between a virtual machine and its host. One relay stands at each end: the one near the clients
/// listens in the place of the server, the one near the server connects to it for each of them.
///
/// On the line everything is a packet: channel number (2 bytes), kind (2), length (4), data; little
/// endian. The clients' side opens channels and numbers them.
class ControlRelay
{
public:
    /// @param line non-blocking
    /// @param listener takes the clients; stays the caller's
    static ControlRelay nearClients(FileDescriptor line, int listener);
    static ControlRelay nearServer(FileDescriptor line, std::filesystem::path server);

    /// Relays until the line ends or `stop` becomes readable.
    void run(int stop);

private:
    /// One relayed connection. It is over when both directions have ended.
    struct Channel {
        FileDescriptor socket;
        Bytes output;                ///< for the socket
        bool hasInputEnded = false;  ///< the socket has sent its last byte
        bool isOutputEnding = false; ///< the far side has sent its last byte
        bool hasOutputEnded = false;
    };
    enum class Kind : std::uint16_t { Open, Data, End };

    explicit ControlRelay(FileDescriptor line);

    void pollOnce(int stop, bool& isStopped);
    void acceptClient();
    void openChannel(std::uint16_t number);
    bool readLine();
    void handlePacket(std::uint16_t number, Kind kind, ByteView data);
    void readSocket(std::uint16_t number, Channel& channel);
    static void writeSocket(Channel& channel);
    bool writeLine();
    void queue(std::uint16_t number, Kind kind, ByteView data = {});

    FileDescriptor m_line;
    int m_listener = -1;
    std::filesystem::path m_server;
    Bytes m_lineInput;
    Bytes m_lineOutput;
    std::map<std::uint16_t, Channel> m_channels;
    std::uint16_t m_nextChannel = 0;
    bool m_hasLineEnded = false;
};

} // namespace zrnsim
