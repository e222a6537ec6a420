#pragma once

#include "control/file_descriptor.h"

#include <sys/eventfd.h>

namespace zrnsim
{

/// Something to wait for with poll(), that any thread can raise.
class Event
{
public:
    /// @throws std::system_error
    Event();

    int descriptor() const { return m_fd.get(); }
    void raise() const { eventfd_write(m_fd.get(), 1); }
    void clear() const
    {
        eventfd_t count = 0;
        eventfd_read(m_fd.get(), &count);
    }

private:
    FileDescriptor m_fd;
};

} // namespace zrnsim
