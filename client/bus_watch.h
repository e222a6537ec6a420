#pragma once

#include "client/bus.h"

#include <chrono>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace zrn
{

/// What happened to a camera between two looks at the bus.
struct BusEvent {
    enum class Kind {
        Left,
        Arrived, ///< was plugged in, or was there when the watch began
        Changed, ///< in another way, as in its access, use or serial
    };
    Kind kind = Kind::Arrived;
    BusCamera camera; ///< without its holders; as it was last seen when it has left
};

/// Tells which cameras arrive on the bus, leave it, and change, by comparing each look with the one
/// before. A camera at another address is another one: a replug between two looks is a departure
/// and an arrival. Departures come first, then the others in the order of their ports.
///
/// udev says when to look, once a device is set up. It does not tell who opens and closes cameras,
/// and is missing in containers: the bus is looked at every second all the same, and four times a
/// second where there is no udev.
///
/// There is no thread, and nobody is called back: who calls next() looks. No camera is opened.
///
/// Thread safety: thread-safe; the destructor belongs to one thread.
class BusWatch
{
public:
    /// @throws Error when no more files can be opened
    explicit BusWatch(BusReaders bus = busReaders());
    ~BusWatch();
    BusWatch(const BusWatch&) = delete;
    BusWatch& operator=(const BusWatch&) = delete;

    /// The oldest event that was not taken yet, once there is one. @return nothing when there was
    /// none for this long, or after stop()
    std::optional<BusEvent> next(std::chrono::milliseconds longest);

    /// For poll() and event loops: can be read while next() may have an event at once, or none will
    /// come any more. It is only to be waited for.
    [[nodiscard]] int descriptor() const;

    /// Wakes who waits for events; none come any more.
    void stop();

private:
    class Alarm;

    void look();

    const BusReaders m_bus;
    const std::unique_ptr<Alarm> m_alarm; ///< when to look, or to come back

    std::mutex m_mutex; // guards what follows
    bool m_isStopped = false;
    std::vector<BusCamera> m_seen; ///< at the last look
    std::deque<BusEvent> m_events;
};

} // namespace zrn
