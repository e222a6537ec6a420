#include "usbredir/event.h"

#include <cerrno>
#include <system_error>

namespace zrnsim
{

Event::Event()
    : m_fd(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC))
{
    if (!m_fd.isOpen()) {
        throw std::system_error(errno, std::generic_category(), "cannot make an event");
    }
}

} // namespace zrnsim
