#include "umockdev/usbfs_device.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <future>
#include <linux/usb/ch9.h>
#include <sys/ioctl.h>
#include <utility>

namespace zrnsim
{

namespace
{

constexpr std::uint32_t capabilities =
    USBDEVFS_CAP_ZERO_PACKET | USBDEVFS_CAP_BULK_CONTINUATION | USBDEVFS_CAP_NO_PACKET_SIZE_LIM |
    USBDEVFS_CAP_BULK_SCATTER_GATHER | USBDEVFS_CAP_REAP_AFTER_DISCONNECT |
    USBDEVFS_CAP_CONNINFO_EX;

struct Task {
    std::function<void()> run;
};

gboolean runTask(gpointer data)
{
    static_cast<Task*>(data)->run();
    return G_SOURCE_REMOVE;
}

void deleteTask(gpointer data)
{
    delete static_cast<Task*>(data);
}

} // namespace

UsbfsDevice::UsbfsDevice(UsbDevice& device, const std::string& nodePath, std::string socketPath,
                         const Options& options)
    : m_device(device)
    , m_options(options)
    , m_speed(device.speed())
    , m_gate(nodePath)
    , m_peers(std::move(socketPath))
    , m_handler(UMOCKDEV_IOCTL_BASE(g_object_new(UMOCKDEV_TYPE_IOCTL_BASE, nullptr)))
{
    g_signal_connect(m_handler, "client-connected", G_CALLBACK(onConnected), this);
    g_signal_connect(m_handler, "handle-ioctl", G_CALLBACK(onIoctl), this);
}

UsbfsDevice::~UsbfsDevice()
{
    g_signal_handlers_disconnect_by_data(m_handler, this);
    g_object_unref(m_handler);
    if (GMainContext* const context = m_context.load()) {
        g_main_context_unref(context);
    }
}

void UsbfsDevice::runOnWorker(std::function<void()> task, std::chrono::milliseconds delay)
{
    GMainContext* const context = m_context.load();
    if (context == nullptr) {
        task();
        return;
    }
    GSource* const source = delay.count() > 0
                                ? g_timeout_source_new(static_cast<guint>(delay.count()))
                                : g_idle_source_new();
    g_source_set_priority(source, G_PRIORITY_DEFAULT);
    g_source_set_callback(source, runTask, new Task{std::move(task)}, deleteTask);
    g_source_attach(source, context);
    g_source_unref(source);
}

void UsbfsDevice::wake()
{
    if (m_context.load() == nullptr || m_wakePending.exchange(true)) {
        return;
    }
    runOnWorker([self = shared_from_this()] {
        self->m_wakePending = false;
        self->pump();
    });
}

void UsbfsDevice::unplug()
{
    std::promise<void> done;
    runOnWorker([this, &done] {
        m_unplugged = true;
        for (const auto& client : m_clients) {
            endAll(*client, -ESHUTDOWN);
            answerBlockedReap(*client);
        }
        updateGate();
        done.set_value();
    });
    done.get_future().wait();
}

bool UsbfsDevice::hasClients()
{
    sweep();
    return !m_clients.empty();
}

void UsbfsDevice::onConnected(UMockdevIoctlBase*, UMockdevIoctlClient* handle, gpointer data)
{
    auto& self = *static_cast<UsbfsDevice*>(data);
    if (self.m_context.load() == nullptr) {
        self.m_context = g_main_context_ref_thread_default();
    }
    self.sweep();
    self.m_clients.push_back(std::make_unique<UsbfsClient>(handle, self.m_peers.takeNewPeer()));
    if (!self.m_isWatching) {
        self.watchClients();
    }
}

gboolean UsbfsDevice::onIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* handle, gpointer data)
{
    auto& self = *static_cast<UsbfsDevice*>(data);
    UsbfsClient* const client = self.find(handle);
    if (client == nullptr) {
        return FALSE;
    }
    std::uintptr_t argument = 0;
    UMockdevIoctlData* const value = umockdev_ioctl_client_get_arg(handle);
    std::memcpy(&argument, value->data, sizeof argument);
    const long result = self.answer(*client, umockdev_ioctl_client_get_request(handle), argument);
    if (result != UsbfsClient::deferred) {
        client->answer(result);
    }
    return TRUE;
}

UsbfsClient* UsbfsDevice::find(UMockdevIoctlClient* handle)
{
    const auto found = std::find_if(m_clients.begin(), m_clients.end(),
                                    [&](const auto& client) { return client->handle == handle; });
    return found == m_clients.end() ? nullptr : found->get();
}

/// A client that went away without a word gives back what it held.
void UsbfsDevice::sweep()
{
    for (auto client = m_clients.begin(); client != m_clients.end();) {
        if ((*client)->isConnected()) {
            ++client;
            continue;
        }
        for (const Urb& urb : (*client)->pending) {
            m_submittedBytes -= urb.length();
        }
        const std::set<unsigned> claimed = (*client)->claimed;
        for (const unsigned interface : claimed) {
            if (!m_unplugged) {
                release(**client, interface);
            }
        }
        client = m_clients.erase(client);
    }
    updateGate();
}

/// Sweeps for as long as there are clients: of one that was killed nothing else may tell.
void UsbfsDevice::watchClients()
{
    constexpr std::chrono::milliseconds period(200);
    sweep();
    m_isWatching = !m_clients.empty();
    if (m_isWatching) {
        runOnWorker(
            [weak = weak_from_this()] {
                if (const auto self = weak.lock()) {
                    self->watchClients();
                }
            },
            period);
    }
}

long UsbfsDevice::answer(UsbfsClient& client, unsigned long request, std::uintptr_t argument)
{
    switch (request) {
    case USBDEVFS_REAPURB:
    case USBDEVFS_REAPURBNDELAY: {
        const long result = reap(client, argument);
        if (result == -EAGAIN && request == USBDEVFS_REAPURB) {
            client.reapArgument = argument;
            return UsbfsClient::deferred;
        }
        return result;
    }
    case USBDEVFS_DISCARDURB:
        return discard(client, argument);
    default:
        break;
    }
    if (m_unplugged) {
        return -ENODEV;
    }
    switch (request) {
    case USBDEVFS_SUBMITURB:
        return submit(client, argument);
    case USBDEVFS_GET_CAPABILITIES:
        return client.memory.writeObject(argument, capabilities) ? 0 : -EFAULT;
    case USBDEVFS_GET_SPEED:
        return m_speed == UsbSpeed::Super ? USB_SPEED_SUPER : USB_SPEED_HIGH;
    case USBDEVFS_CONNECTINFO:
        return connectInfo(client, argument);
    case USBDEVFS_CONTROL:
        return controlTransfer(client, argument);
    case USBDEVFS_SETINTERFACE:
        return setInterface(client, argument);
    case USBDEVFS_GETDRIVER:
        return -ENODATA; // no kernel driver is ever bound
    case USBDEVFS_IOCTL:
        return driverRequest(client, argument);
    case USBDEVFS_RESET:
        return resetDevice(client);
    default:
        return answerWithNumber(client, request, argument);
    }
}

/// The requests whose argument points to a number, or to a structure that begins with one.
long UsbfsDevice::answerWithNumber(UsbfsClient& client, unsigned long request,
                                   std::uintptr_t argument)
{
    unsigned number = 0;
    if (!client.memory.readObject(argument, number)) {
        return -EFAULT;
    }
    switch (request) {
    case USBDEVFS_CLAIMINTERFACE:
    case USBDEVFS_DISCONNECT_CLAIM:
        return claim(client, number);
    case USBDEVFS_RELEASEINTERFACE:
        return release(client, number);
    case USBDEVFS_SETCONFIGURATION:
        return client.claimed.empty() ? forward(0x00, usb::setConfiguration, number, 0) : -EBUSY;
    case USBDEVFS_CLEAR_HALT:
        return forward(0x02, usb::clearFeature, usb::featureEndpointHalt, number);
    case USBDEVFS_RESETEP:
        return 0;
    default:
        return -ENOTTY;
    }
}

long UsbfsDevice::connectInfo(const UsbfsClient& client, std::uintptr_t argument) const
{
    const usbdevfs_connectinfo info{m_options.address, 0};
    return client.memory.writeObject(argument, info) ? 0 : -EFAULT;
}

bool UsbfsDevice::isClaimedByOther(const UsbfsClient& client, unsigned interface)
{
    sweep();
    return std::any_of(m_clients.begin(), m_clients.end(), [&](const auto& other) {
        return other.get() != &client && other->claimed.contains(interface);
    });
}

long UsbfsDevice::claim(UsbfsClient& client, unsigned interface)
{
    if (!hasInterface(interface)) {
        return -ENOENT;
    }
    if (isClaimedByOther(client, interface)) {
        return -EBUSY;
    }
    client.claimed.insert(interface);
    if (m_options.onClaim) {
        m_options.onClaim(interface, true);
    }
    return 0;
}

long UsbfsDevice::release(UsbfsClient& client, unsigned interface)
{
    if (client.claimed.erase(interface) == 0) {
        return -EINVAL;
    }
    if (m_options.onClaim) {
        m_options.onClaim(interface, false);
    }
    // The kernel leaves a released interface in its first setting.
    if (settingOf(interface) != 0) {
        forward(0x01, usb::setInterface, 0, interface);
    }
    return 0;
}

long UsbfsDevice::setInterface(const UsbfsClient& client, std::uintptr_t argument)
{
    usbdevfs_setinterface wanted{};
    if (!client.memory.readObject(argument, wanted)) {
        return -EFAULT;
    }
    if (!client.claimed.contains(wanted.interface)) {
        return -EINVAL;
    }
    const long result = forward(0x01, usb::setInterface, wanted.altsetting, wanted.interface);
    return result == -EPIPE ? -EINVAL : result;
}

long UsbfsDevice::driverRequest(const UsbfsClient& client, std::uintptr_t argument) const
{
    usbdevfs_ioctl wanted{};
    if (!client.memory.readObject(argument, wanted)) {
        return -EFAULT;
    }
    switch (static_cast<unsigned>(wanted.ioctl_code)) {
    case USBDEVFS_DISCONNECT:
        return -ENODATA;
    case USBDEVFS_CONNECT:
        return 0;
    default:
        return -ENOTTY;
    }
}

long UsbfsDevice::resetDevice(UsbfsClient& client)
{
    endAll(client, -EPROTO);
    updateGate();
    return forward(0x00, usb::setConfiguration, topology::configuration, 0);
}

/// A request without data that the kernel sends on its own account.
long UsbfsDevice::forward(std::uint8_t requestType, std::uint8_t request, unsigned value,
                          unsigned index)
{
    const SetupPacket setup{requestType, request, static_cast<std::uint16_t>(value),
                            static_cast<std::uint16_t>(index), 0};
    switch (m_device.control(setup, {}).status) {
    case ControlStatus::Done:
        return 0;
    case ControlStatus::Stalled:
        return -EPIPE;
    case ControlStatus::Failed:
        return -EPROTO;
    case ControlStatus::Unanswered:
        return -ETIMEDOUT;
    }
    return -EPROTO;
}

} // namespace zrnsim
