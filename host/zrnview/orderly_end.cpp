#include "zrnview/orderly_end.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace zrnview
{
namespace
{

int signalled = -1; // eventfd, which may be written to from a signal handler

void noteSignal(int)
{
    const int before = errno;
    [[maybe_unused]] const int ignored = ::eventfd_write(signalled, 1);
    errno = before;
}

} // namespace

void endOrderlyOnSignals()
{
    signalled = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (signalled < 0) {
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
    auto* notifier = new QSocketNotifier(signalled, QSocketNotifier::Read, qApp);
    QObject::connect(notifier, &QSocketNotifier::activated, qApp, [] {
        eventfd_t count = 0;
        ::eventfd_read(signalled, &count);
        QCoreApplication::quit();
    });
    struct sigaction action {
    };
    action.sa_handler = noteSignal;
    action.sa_flags = SA_RESTART;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        ::sigaction(signal, &action, nullptr);
    }
}

} // namespace zrnview
