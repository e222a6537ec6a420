#pragma once

#include <string>

namespace zrnsim
{

/// A device node whose writability can be switched: a FIFO that holds one byte or none.
///
/// User space waits for POLLOUT on a usbfs node and reaps finished transfers then. A one-page FIFO
/// with a byte in it is not writable; taking the byte out wakes every process that polls it.
class PollGate
{
public:
    /// Replaces whatever lies at `path` by the FIFO. @throws std::system_error
    explicit PollGate(const std::string& path);
    ~PollGate();
    PollGate(const PollGate&) = delete;
    PollGate& operator=(const PollGate&) = delete;

    void setReady(bool ready);

private:
    int m_fd;
    bool m_ready = true;
};

} // namespace zrnsim
