#include "common/interrupt.h"

#include <chrono>
#include <csignal>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

namespace zrnhost
{
namespace
{

using Clock = std::chrono::steady_clock;

/// Signals so close to each other are one request.
constexpr std::chrono::seconds sameRequest(1);

} // namespace

Interrupt::Interrupt()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    struct sigaction hangup {
    };
    ::sigaction(SIGHUP, nullptr, &hangup);
    if (hangup.sa_handler != SIG_IGN) { // as nohup(1) has it
        sigaddset(&set, SIGHUP);
    }
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
    m_signals = ::signalfd(-1, &set, SFD_CLOEXEC);
    m_end = ::eventfd(0, EFD_CLOEXEC);
    if (m_signals < 0 || m_end < 0) {
        throw std::system_error(errno, std::generic_category(), "signalfd");
    }
    m_thread = std::thread(&Interrupt::watch, this);
}

Interrupt::~Interrupt()
{
    ::eventfd_write(m_end, 1);
    m_thread.join();
    ::close(m_signals);
    ::close(m_end);
}

void Interrupt::onRequest(const void* owner, std::function<void()> action)
{
    const std::lock_guard lock(m_actionMutex);
    if (!action) {
        m_actions.erase(owner);
        return;
    }
    if (m_requested) {
        action();
    }
    m_actions[owner] = std::move(action);
}

void Interrupt::watch()
{
    std::thread actionThread;
    Clock::time_point first;
    for (;;) {
        pollfd sources[] = {{m_signals, POLLIN, 0}, {m_end, POLLIN, 0}};
        if (::poll(sources, 2, -1) < 0) {
            continue;
        }
        if (sources[1].revents) {
            break;
        }
        signalfd_siginfo info;
        if (::read(m_signals, &info, sizeof info) != sizeof info) {
            continue;
        }
        const Clock::time_point now = Clock::now();
        if (m_requested.exchange(true)) {
            if (now - first < sameRequest) {
                continue;
            }
            ::_exit(exitStatus);
        }
        first = now;
        // On a thread of its own, so that a second signal is noticed while the action runs.
        actionThread = std::thread([this] {
            const std::lock_guard lock(m_actionMutex);
            for (const auto& [owner, action] : m_actions) {
                action();
            }
        });
    }
    if (actionThread.joinable()) {
        actionThread.join();
    }
}

} // namespace zrnhost
