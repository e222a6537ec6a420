#pragma once

#include "model/usb_device.h"
#include "umockdev/poll_gate.h"
#include "umockdev/usbfs_client.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zrnsim
{

/// Linux's usbfs for one plugged-in device: answers the ioctl requests on its device node. What the
/// endpoints of a kind of device do is left to the classes under this one.
///
/// The functions of its own run on umockdev's worker thread, the only place where a client's memory
/// is touched. Each unplugging ends an object's life; a replugged device gets a new one.
class UsbfsDevice : public std::enable_shared_from_this<UsbfsDevice>
{
public:
    struct Options {
        unsigned bus = 1;
        unsigned address = 1;
        std::size_t memoryLimit = 0; ///< bytes submitted at once, as usbfs_memory_mb; 0: no limit
        /// Told on the worker thread when an interface of a plugged-in device is claimed or
        /// released.
        std::function<void(unsigned interface, bool isClaimed)> onClaim = {};
    };

    /// @param nodePath the device node inside the testbed's folder
    /// @param socketPath the socket on which umockdev listens for the node
    UsbfsDevice(UsbDevice& device, const std::string& nodePath, std::string socketPath,
                const Options& options);
    virtual ~UsbfsDevice();
    UsbfsDevice(const UsbfsDevice&) = delete;
    UsbfsDevice& operator=(const UsbfsDevice&) = delete;

    UMockdevIoctlBase* handler() const { return m_handler; }

    /// An endpoint may have become able to answer. Thread safety: thread-safe.
    void wake();

    /// The cable is pulled: what is pending ends, what comes later fails with ENODEV. Returns when
    /// that has happened. Thread safety: thread-safe; not to be called on the worker thread.
    void unplug();

    /// Runs a task on the worker thread; at once on the caller's when no client ever came.
    /// Thread safety: thread-safe.
    void runOnWorker(std::function<void()> task, std::chrono::milliseconds delay = {});

    /// Whether a process still has the node open. Worker thread.
    bool hasClients();

protected:
    using UrbPosition = std::list<Urb>::iterator;

    /// The interface that an endpoint of the current settings belongs to; none: nullopt.
    virtual std::optional<unsigned> interfaceOf(const UrbHeader& request) const = 0;
    virtual bool hasInterface(unsigned interface) const = 0;
    virtual std::uint8_t settingOf(unsigned interface) const = 0;
    /// Takes note of a request block. @return 0, or the negated errno with which it is refused
    virtual long admit(const Urb& urb) = 0;
    /// Completes the request block if its endpoint has an answer for it.
    virtual bool serve(UsbfsClient& client, UrbPosition urb) = 0;
    virtual void noteCompletion(const Urb& urb) = 0;
    /// The client gets the request block back as soon as this returns.
    virtual void noteReap(const Urb& urb) = 0;

    void complete(UsbfsClient& client, UrbPosition urb, int status);

    /// Whether the time that the packets take on the bus is over. If not, serve() is called again.
    bool isIsochronousSlotOver(const Urb& urb);

    static int urbStatus(TransferFault fault);

private:
    static gboolean onIoctl(UMockdevIoctlBase* base, UMockdevIoctlClient* handle, gpointer self);
    static void onConnected(UMockdevIoctlBase* base, UMockdevIoctlClient* handle, gpointer self);

    // Requests. They return the ioctl's result, a negated errno, or
    // UsbfsClient::deferred.
    long answer(UsbfsClient& client, unsigned long request, std::uintptr_t argument);
    long answerWithNumber(UsbfsClient& client, unsigned long request, std::uintptr_t argument);
    long connectInfo(const UsbfsClient& client, std::uintptr_t argument) const;
    long claim(UsbfsClient& client, unsigned interface);
    long release(UsbfsClient& client, unsigned interface);
    long setInterface(const UsbfsClient& client, std::uintptr_t argument);
    long driverRequest(const UsbfsClient& client, std::uintptr_t argument) const;
    long resetDevice(UsbfsClient& client);
    long submit(UsbfsClient& client, std::uintptr_t argument);
    long submitControl(UsbfsClient& client, Urb urb);
    long submitData(UsbfsClient& client, Urb urb);
    long discard(UsbfsClient& client, std::uintptr_t address);
    long reap(UsbfsClient& client, std::uintptr_t argument);
    long controlTransfer(UsbfsClient& client, std::uintptr_t argument);

    long forward(std::uint8_t requestType, std::uint8_t request, unsigned value, unsigned index);
    bool isBusyFor(const UsbfsClient& client, const SetupPacket& setup);
    bool isClaimedByOther(const UsbfsClient& client, unsigned interface);
    void finishControl(UsbfsClient& client, std::uint64_t id, const ControlReply& reply);

    void pump();
    void answerBlockedReap(UsbfsClient& client);
    void endAll(UsbfsClient& client, int status);
    void updateGate();

    UsbfsClient* find(UMockdevIoctlClient* handle);
    void sweep();
    void watchClients();

    UsbDevice& m_device;
    const Options m_options;
    const UsbSpeed m_speed;
    PollGate m_gate;
    PeerTracker m_peers;
    UMockdevIoctlBase* m_handler;
    std::atomic<GMainContext*> m_context =
        nullptr; ///< the worker's, known from the first client on
    std::atomic<bool> m_unplugged = false;
    std::atomic<bool> m_wakePending = false;

    std::vector<std::unique_ptr<UsbfsClient>> m_clients;
    std::uint64_t m_nextUrb = 1;
    std::size_t m_submittedBytes = 0;
    std::chrono::steady_clock::time_point
        m_isoSlot; ///< when the packets handed out so far have passed on the bus
    bool m_isoTimer = false;
    bool m_isWatching = false;
};

} // namespace zrnsim
