#include "usbredir/usbredir_port.h"

#include "control/unix_socket.h"
#include "usbredir/redirected_camera.h"

#include <algorithm>
#include <array>
#include <poll.h>
#include <utility>

namespace zrnsim
{

UsbRedirPort::UsbRedirPort(Camera& camera, std::filesystem::path path)
    : m_camera(camera)
    , m_path(std::move(path))
    , m_listener(listenOn(m_path))
{
    m_camera.setWakeHandler([this] { m_event.raise(); });
    m_thread = std::thread([this] { run(); });
}

UsbRedirPort::~UsbRedirPort()
{
    {
        const std::lock_guard lock(m_mutex);
        m_quits = true;
    }
    m_event.raise();
    m_thread.join();
    m_camera.setWakeHandler({});
}

void UsbRedirPort::unplug()
{
    const std::lock_guard lock(m_mutex);
    if (!std::exchange(m_isPlugged, false)) {
        return;
    }
    m_camera.detach();
    if (m_host) {
        m_host->unplug();
    }
    m_event.raise();
}

void UsbRedirPort::plug(std::optional<std::uint64_t> serial)
{
    const std::lock_guard lock(m_mutex);
    if (std::exchange(m_isPlugged, true)) {
        return;
    }
    m_camera.attach(serial);
    if (m_host) {
        m_host->plug();
    }
    m_event.raise();
}

bool UsbRedirPort::isPlugged() const
{
    const std::lock_guard lock(m_mutex);
    return m_isPlugged;
}

void UsbRedirPort::run()
{
    for (;;) {
        waitForEvents();
        const std::lock_guard lock(m_mutex);
        if (m_quits) {
            return;
        }
        acceptHost();
        if (!m_host) {
            continue;
        }
        const bool isAlive = m_host->receive();
        m_host->serve();
        if (!isAlive || !m_host->send()) {
            closeConnection();
        }
    }
}

void UsbRedirPort::waitForEvents()
{
    std::array<pollfd, 2> events{
        {{m_event.descriptor(), POLLIN, 0}, {m_listener.get(), POLLIN, 0}}};
    timespec wait{};
    bool hasDeadline = false;
    {
        const std::lock_guard lock(m_mutex);
        if (m_host) {
            const short output = m_host->wantsToSend() ? POLLOUT : 0;
            events[1] = {m_connection.get(), static_cast<short>(POLLIN | output), 0};
            if (const auto deadline = m_host->deadline()) {
                const auto left = std::max<Clock::duration>(*deadline - Clock::now(), {});
                const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
                wait.tv_sec = seconds.count();
                wait.tv_nsec = std::chrono::nanoseconds(left - seconds).count();
                hasDeadline = true;
            }
        }
    }
    ppoll(events.data(), events.size(), hasDeadline ? &wait : nullptr, nullptr);
    m_event.clear();
}

void UsbRedirPort::acceptHost()
{
    if (m_host) {
        return;
    }
    m_connection = acceptFrom(m_listener.get());
    if (m_connection.isOpen()) {
        m_host = std::make_unique<RedirectedCamera>(m_camera, m_connection.get(), m_isPlugged);
    }
}

/// For the camera the end of a connection is like being unplugged and plugged in again.
void UsbRedirPort::closeConnection()
{
    m_host.reset();
    m_connection = FileDescriptor();
    if (m_isPlugged) {
        m_camera.detach();
        m_camera.attach(std::nullopt);
    }
}

} // namespace zrnsim
