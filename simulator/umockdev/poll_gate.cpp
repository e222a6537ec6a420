#include "umockdev/poll_gate.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace zrnsim
{

namespace
{

constexpr int onePage = 4096;

[[noreturn]] void fail(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

} // namespace

PollGate::PollGate(const std::string& path)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    unlink(path.c_str());
    // Opened by another name, so that this process is not seen among those that have the node open.
    const std::string ownName = path + ".gate";
    if (mkfifo(ownName.c_str(), 0600) != 0 || link(ownName.c_str(), path.c_str()) != 0) {
        fail(path);
    }
    m_fd = open(ownName.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    unlink(ownName.c_str());
    if (m_fd < 0 || fcntl(m_fd, F_SETPIPE_SZ, onePage) < 0) {
        fail(path);
    }
    setReady(false);
}

PollGate::~PollGate()
{
    close(m_fd);
}

void PollGate::setReady(bool ready)
{
    if (ready == m_ready) {
        return;
    }
    char byte = 0;
    const ssize_t moved = ready ? ::read(m_fd, &byte, 1) : ::write(m_fd, &byte, 1);
    if (moved == 1 || errno == EAGAIN) {
        m_ready = ready;
    }
}

} // namespace zrnsim
