#pragma once

#include <memory>
#include <unistd.h>

namespace zrnpy
{

/// Throws unless @p process is this one. @throws zrn::Error
void checkProcess(pid_t process);

/// Notes that this process is about to load the driver. @throws zrn::Error in a process that was
/// forked from one that had.
void claimDriver();

/// What belongs to the process that made it. A forked child has copies without the threads behind
/// them: it may neither use nor end them, and leaves them as they are.
///
/// Thread safety: that of a shared_ptr.
template <typename Held>
class ProcessBound
{
public:
    explicit ProcessBound(std::shared_ptr<Held> held)
        : m_held(std::move(held))
    {
    }
    ~ProcessBound() { take().reset(); }
    ProcessBound(const ProcessBound&) = delete;
    ProcessBound& operator=(const ProcessBound&) = delete;

    /// @throws zrn::Error in another process
    [[nodiscard]] std::shared_ptr<Held> get() const
    {
        checkProcess(m_process);
        return m_held;
    }
    /// The same in any process, for what needs no thread.
    [[nodiscard]] Held& look() const { return *m_held; }
    /// Gives up what is held: nothing in another process.
    [[nodiscard]] std::shared_ptr<Held> take()
    {
        if (m_process != ::getpid()) {
            static_cast<void>(new std::shared_ptr<Held>(std::move(m_held)));
        }
        return std::move(m_held);
    }

private:
    std::shared_ptr<Held> m_held;
    const pid_t m_process = ::getpid();
};

} // namespace zrnpy
