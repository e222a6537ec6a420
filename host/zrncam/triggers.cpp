#include "triggers.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

namespace
{

void block(int signal)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signal);
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

} // namespace

void Triggers::blockSignal()
{
    block(SIGUSR1);
}

Triggers::Triggers(std::function<void()> action)
    : m_action(std::move(action))
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR1);
    m_signals = ::signalfd(-1, &set, SFD_CLOEXEC);
    m_end = ::eventfd(0, EFD_CLOEXEC);
    if (m_signals < 0 || m_end < 0) {
        throw std::system_error(errno, std::generic_category(), "signalfd");
    }
    m_thread = std::thread(&Triggers::watch, this);
}

Triggers::~Triggers()
{
    ::eventfd_write(m_end, 1);
    m_thread.join();
    ::close(m_signals);
    ::close(m_end);
}

void Triggers::watch() const
{
    block(SIGTTIN); // reading in the background fails then, and does not stop the process
    std::array<pollfd, 3> sources{
        {{m_end, POLLIN, 0}, {m_signals, POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}}};
    while (sources[0].revents == 0) {
        if (::poll(sources.data(), sources.size(), -1) < 0) {
            continue;
        }
        signalfd_siginfo info;
        if (sources[1].revents && ::read(m_signals, &info, sizeof info) == sizeof info) {
            m_action();
        }
        if (sources[2].revents && !readLines()) {
            sources[2].fd = -1; // nothing more comes from there
        }
    }
}

/// @return whether there may be more
bool Triggers::readLines() const
{
    std::array<char, 256> bytes{};
    const ssize_t count = ::read(STDIN_FILENO, bytes.data(), bytes.size());
    if (count < 0) {
        return errno == EINTR || errno == EAGAIN;
    }
    const auto lines = std::count(bytes.begin(), bytes.begin() + count, '\n');
    for (auto line = lines; line > 0; --line) {
        m_action();
    }
    return count > 0;
}
