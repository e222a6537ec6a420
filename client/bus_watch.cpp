#include "client/bus_watch.h"

#include "client/error.h"

#include <algorithm>
#include <cerrno>
#include <libudev.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <system_error>
#include <unistd.h>

namespace zrn
{
namespace
{

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto longestWait = 1h;
/// Between two looks that nobody asked for.
constexpr timespec pauseWithUdev{1, 0};
constexpr timespec pauseWithoutUdev{0, 250'000'000};

class File
{
public:
    explicit File(int descriptor)
        : m_descriptor(descriptor)
    {
        if (descriptor < 0) {
            throw Error(Error::Kind::NoCamera, "NotWatchable",
                        "the bus cannot be watched: " + std::generic_category().message(errno));
        }
    }
    ~File() { ::close(m_descriptor); }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    operator int() const { return m_descriptor; }

private:
    const int m_descriptor;
};

struct Unref {
    void operator()(udev* context) const { ::udev_unref(context); }
    void operator()(udev_monitor* monitor) const { ::udev_monitor_unref(monitor); }
    void operator()(udev_device* device) const { ::udev_device_unref(device); }
};
template <typename Object>
using Udev = std::unique_ptr<Object, Unref>;

bool isSame(const BusCamera& a, const BusCamera& b)
{
    return a.port == b.port && a.bus == b.bus && a.address == b.address;
}

/// Null when there is none.
const BusCamera* find(const std::vector<BusCamera>& cameras, const BusCamera& camera)
{
    const auto found = std::ranges::find_if(
        cameras, [&camera](const BusCamera& each) { return isSame(each, camera); });
    return found == cameras.end() ? nullptr : &*found;
}

} // namespace

/// A clock and, where it is there, udev.
class BusWatch::Alarm
{
public:
    explicit Alarm(bool hasUdev)
    {
        if (hasUdev) {
            m_udev.reset(::udev_new());
            m_monitor.reset(::udev_monitor_new_from_netlink(m_udev.get(), "udev"));
        }
        if (m_monitor) {
            ::udev_monitor_filter_add_match_subsystem_devtype(m_monitor.get(), "usb", nullptr);
            ::udev_monitor_enable_receiving(m_monitor.get());
            add(::udev_monitor_get_fd(m_monitor.get()));
        }
        add(m_clock);
        ring(pause());
    }

    int descriptor() const { return m_both; }

    /// Goes off soon.
    void ring() { ring({0, 1}); }

    /// Until it goes off. @return whether it has
    bool wait(std::chrono::milliseconds longest) const
    {
        pollfd both{m_both, POLLIN, 0};
        return ::poll(&both, 1, static_cast<int>(longest.count())) > 0;
    }

    void silence()
    {
        std::uint64_t times = 0;
        [[maybe_unused]] const ssize_t length = ::read(m_clock, &times, sizeof(times));
        while (m_monitor && Udev<udev_device>(::udev_monitor_receive_device(m_monitor.get()))) {
        }
    }

private:
    void add(int descriptor)
    {
        epoll_event event{};
        event.events = EPOLLIN;
        ::epoll_ctl(m_both, EPOLL_CTL_ADD, descriptor, &event);
    }
    const timespec& pause() const { return m_monitor ? pauseWithUdev : pauseWithoutUdev; }
    void ring(const timespec& first)
    {
        const itimerspec times{pause(), first};
        ::timerfd_settime(m_clock, 0, &times, nullptr);
    }

    const File m_both{::epoll_create1(EPOLL_CLOEXEC)};
    const File m_clock{::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)};
    Udev<udev> m_udev;
    Udev<udev_monitor> m_monitor;
};

BusWatch::BusWatch(BusReaders bus)
    : m_bus(std::move(bus))
    , m_alarm(std::make_unique<Alarm>(m_bus.isAnnounced))
{
    look();
}

BusWatch::~BusWatch() = default;

int BusWatch::descriptor() const
{
    return m_alarm->descriptor();
}

std::optional<BusEvent> BusWatch::next(std::chrono::milliseconds longest)
{
    const auto begin = Clock::now();
    for (;;) {
        {
            const std::lock_guard lock(m_mutex);
            if (m_isStopped) {
                return std::nullopt;
            }
            if (m_events.empty() && m_alarm->wait(0ms)) {
                m_alarm->silence();
                look();
            }
            if (!m_events.empty()) {
                std::optional<BusEvent> event(std::move(m_events.front()));
                m_events.pop_front();
                return event;
            }
        }
        const auto waited =
            std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
        if (waited >= longest) {
            return std::nullopt;
        }
        m_alarm->wait(std::min<std::chrono::milliseconds>(longest - waited, longestWait));
    }
}

void BusWatch::stop()
{
    const std::lock_guard lock(m_mutex);
    m_isStopped = true;
    m_alarm->ring();
}

void BusWatch::look()
{
    std::vector<BusCamera> cameras = m_bus.cameras();
    for (const BusCamera& camera : m_seen) {
        if (!find(cameras, camera)) {
            m_events.push_back({BusEvent::Kind::Left, camera});
        }
    }
    for (const BusCamera& camera : cameras) {
        const BusCamera* const before = find(m_seen, camera);
        if (!before) {
            m_events.push_back({BusEvent::Kind::Arrived, camera});
        } else if (!(camera == *before)) {
            m_events.push_back({BusEvent::Kind::Changed, camera});
        }
    }
    m_seen = std::move(cameras);
    if (!m_events.empty()) {
        m_alarm->ring(); // there is something to take until the queue is empty again
    }
}

} // namespace zrn
